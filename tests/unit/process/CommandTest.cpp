#include "Platform/process/Command.h"

#include <gtest/gtest.h>

namespace vesko {
namespace {

constexpr std::chrono::seconds ample{20};

TEST(Command, RunsProgramsWithinBounds) {
  std::error_code error;
  const auto spoken = runCommand({"sh", "-c", "cat; echo \"$1\"; echo no >&2; exit 3", "sh", "a b"}, ample, error);
  EXPECT_FALSE(error) << error.message();
  EXPECT_EQ(spoken.exitCode, 3);
  EXPECT_EQ(spoken.output, "a b\n");
  EXPECT_EQ(runCommand({"sh", "-c", "kill -9 $$"}, ample, error).exitCode, -9);

  static_cast<void>(runCommand({"no such program"}, ample, error));
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  for (const char* endless : {"exec >&-; sleep 60", "sleep 60 & wait"}) {
    const auto begin = std::chrono::steady_clock::now();
    static_cast<void>(runCommand({"sh", "-c", endless}, std::chrono::seconds(1), error));
    EXPECT_EQ(error, std::errc::timed_out) << endless;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, ample) << endless;
  }
  EXPECT_LE(runCommand({"sh", "-c", "exec cat /dev/zero"}, ample, error).output.size(), 2 * commandOutputLimit);
  EXPECT_EQ(error, std::errc::file_too_large);
}

}  // namespace
}  // namespace vesko
