#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/Coverage.h"

namespace vesko {

/// Runs `body` in a process of its own, which may give up rights and change what belongs to the process. True when it
/// ended by itself and none of its expectations failed. The child misses the threads behind the queues, if there are
/// any yet: a body that uses queues is for `expectToPassAnew`.
template <class Body>
[[nodiscard]] bool passesInChild(Body body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    // What it throws must not lead the child back into the parent's work.
    [&]() noexcept { body(); }();
    std::fflush(nullptr);
    keepCoverage();
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Expects the same of `body` where `prepare` succeeds, which is tried in a process of its own as well; skips the test
/// where it does not.
template <class Prepare, class Body>
void expectToPassPrepared(Prepare prepare, Body body) {
  if (!passesInChild([&] { ::_exit(prepare() ? 0 : 1); })) {
    GTEST_SKIP() << "namespaces of one's own, or what is done in them, are not permitted here";
  }
  EXPECT_TRUE(passesInChild([&] {
    ASSERT_TRUE(prepare());
    body();
  }));
}

/// Expects it of a program that begins anew and runs this test up to here: it has its own threads behind the
/// queues, whatever ran before in this one. Requires: nothing before it in the test uses queues.
template <class Body>
void expectToPassAnew(Body body) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // until the end of the test
  const auto run = [&]() noexcept {
    body();
    const auto& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result.total_part_count(); ++i) {
      const auto& part = result.GetTestPartResult(i);
      if (part.failed()) std::fprintf(stderr, "%s:%d: %s\n", part.file_name(), part.line_number(), part.message());
    }
    std::fflush(nullptr);
    keepCoverage();
    ::_exit(testing::Test::HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

/// `passesInChild` as a user whom permissions bind: the present one, or "nobody" instead of the superuser.
template <class Body>
[[nodiscard]] bool passesAsOrdinaryUser(Body body) {
  return passesInChild([&] {
    constexpr uid_t nobody = 65534;
    if (::geteuid() == 0) {
      const bool changed = ::setgroups(0, nullptr) == 0 && ::setgid(nobody) == 0 && ::setuid(nobody) == 0;
      ASSERT_TRUE(changed);
    }
    body();
  });
}

}  // namespace vesko
