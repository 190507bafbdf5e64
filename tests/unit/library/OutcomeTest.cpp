#include <gtest/gtest.h>

#include "Platform/sockets/SocketError.h"
#include "VeskoKit/VeskoItem.h"
#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko {
namespace {

TEST(Outcome, IsDescribedByThingAndCause) {
  using enum VeskoFailureReason;
  VeskoTransferOutcome outcome;
  outcome.droppedCount = 1;
  EXPECT_EQ(outcome.description(), "finished, but 1 element could not be stored");
  outcome.kind = VeskoTransferOutcome::Kind::failed;
  outcome.reason = timedOut;
  outcome.keptPath = "/d/x";
  EXPECT_EQ(outcome.description(), "the other side stopped responding; what had fully arrived is in \"/d/x\"");
  outcome.keptPath.clear();
  outcome.reason = storage;
  outcome.operation = "storing";
  outcome.element = "a";
  outcome.error = std::make_error_code(std::errc::permission_denied);
  EXPECT_EQ(outcome.description(), "storing \"a\": it cannot be stored (Permission denied)");
  outcome.error = SocketErrc::endOfStream;
  EXPECT_EQ(outcome.description(), "storing \"a\": the connection was closed by the other side");
  EXPECT_EQ(descriptionOf({"/a", notReadable, std::make_error_code(std::errc::invalid_argument)}),
            "\"/a\": it is neither a file nor a folder");
  EXPECT_EQ(descriptionOf({"/a", notReadable, VeskoItemErrc::notAFolder}), "\"/a\": it is a file, not a folder");
}

}  // namespace
}  // namespace vesko
