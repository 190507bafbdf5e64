#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "VeskoKit/ItemWalk.h"
#include "tests/faults/FaultsFixture.h"

namespace vesko {
namespace {

using Fault = SystemFaults::Fault;

class WalkFaultsTest : public FaultsTest {
 protected:
  WalkFaultsTest() {
    // Whether it may be read has to be asked; nobody but the superuser may.
    if (::geteuid() != 0) return;
    std::filesystem::permissions(folder_.write("sources/folder/foreign", ""), std::filesystem::perms::others_read);
  }

  /// Walks with one fault in force, and expects each entry in the list or, with the reason, left out; false when the
  /// fault had nothing left to strike.
  [[nodiscard]] bool strikes(const Fault& fault, const Sendable& chosen) {
    std::vector<VeskoSkippedElement> leftOut;
    VeskoItems items;
    SystemFaults faults({fault});
    faults.asProduct([&] { items = walkPaths(chosen.paths, leftOut); });
    const bool hasStruck = faults.strikes() > 0;
    std::set<std::string> found;
    for (const auto& item : items) found.insert(item->name());
    for (const auto& [element, reason, error] : leftOut) {
      EXPECT_NE(reason, VeskoFailureReason::none);
      EXPECT_TRUE(hasStruck && error) << element;
    }
    for (const auto& [path, contents] : chosen.expected) {
      const auto holds = [this, name = path](const VeskoSkippedElement& skipped) {
        return (folder_.path("sources/" + name) + '/').starts_with(skipped.element + '/');
      };
      EXPECT_TRUE(found.contains(path) || std::ranges::any_of(leftOut, holds)) << path << " is missing";
    }
    EXPECT_TRUE(leftOut.empty() || fault.error != EINTR);
    EXPECT_TRUE(waitForDescriptors(descriptors_));
    return hasStruck;
  }

  std::ptrdiff_t descriptors_ = openDescriptors();
};

TEST_F(WalkFaultsTest, ListsOrNamesEverything) {
  const Sendable chosen = sendable("several");
  const std::pair<int, std::vector<std::string_view>> cases[] = {
      {EIO, {"open", "openat", "stat", "fstat", "fstatat", "faccessat", "readdir", "pread"}},
      {EACCES, {"open", "openat", "stat", "fstatat", "faccessat"}},
      {EMFILE, {"open", "openat"}},
      {ENOMEM, {"open", "openat", "stat", "fstat", "fstatat", "fdopendir"}},
      {EINTR, {"open", "openat"}},
  };
  for (const auto& [error, calls] : cases) {
    for (const auto call : calls) {
      for (const std::size_t count : {std::size_t{1}, std::size_t{3}, SystemFaults::forever}) {
        if (error == EINTR && count == SystemFaults::forever) continue;
        bool hasStruck = true;
        for (std::size_t first = 1; hasStruck && !HasFailure(); ++first) {
          SCOPED_TRACE(testing::Message() << call << " number " << first << ": " << std::strerror(error));
          hasStruck = strikes({error, {call}, first, count}, chosen);
        }
      }
    }
  }
}

}  // namespace
}  // namespace vesko
