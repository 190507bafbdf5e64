#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/hostile/HostileFixture.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::header;
using StreamBytes::metadata;
using StreamBytes::textName;

constexpr std::uint64_t one = 1;
constexpr std::array numbers = {std::uint64_t{0}, one,        one << 31U, one << 32U,
                                (one << 63U) - 1, one << 63U, ~one,       ~one + 1};
constexpr std::uint64_t mebibyte = one << 20U;

TEST_F(HostileTest, AnyNumbersMayBeAnnounced) {
  for (const auto number : numbers) {
    SCOPED_TRACE(number);
    ASSERT_TRUE(receive(metadata(1, number) + file("a", "hello"), "finished")) << "the total binds nobody";
    EXPECT_EQ(recorder_->count("[progress 1 1 " + std::to_string(number) + " 5 "), 1U);
    clear();
    ASSERT_TRUE(receive(metadata(number, 5) + file("a", "hello"), number > 1 ? "failed connectionLost" : "finished"));
    EXPECT_EQ(deliveredTree(), number == 1 ? Tree({{"a", "hello"}}) : Tree());
    clear();
  }
  expectGoodService();
}

TEST_F(HostileTest, ATextMayHaveSixtyFourMebibytes) {
  const auto receiveText = [&](std::uint64_t size, const std::string& outcome) {
    SCOPED_TRACE(size);
    ASSERT_TRUE(receive(metadata(1, size) + header(textName, size) + "xx", outcome));
    EXPECT_EQ(toldSuccesses(), outcome == "finished" ? 2U : 0U);
    const bool isFolder = size == StreamBytes::folderSize;
    EXPECT_EQ(deliveredTree(), isFolder ? Tree({{std::string(textName), "/"}}) : Tree());
    clear();
  };
  for (const auto number : numbers) {
    receiveText(number, number <= 1 || number == StreamBytes::folderSize ? "finished" : "failed limit");
  }
  receiveText(64 * mebibyte + 1, "failed limit");
  receiveText(64 * mebibyte, "failed connectionLost");
  ASSERT_TRUE(receive(metadata(1, 2) + file(textName, "\xff\xfe"), "failed invalidText"));
  recordOnlyOutcomes();
  recorder_->take();
  auto sender = connect();
  ASSERT_TRUE(sender.send(metadata(1, 0) + file(textName, std::string(64 * mebibyte, 'x'))));
  ASSERT_TRUE(recorder_->waitFor("[outcome", 1, std::chrono::seconds(60))) << "every byte is looked at";
  ASSERT_TRUE(endsWith("finished"));
  expectGoodService();
}

}  // namespace
}  // namespace vesko
