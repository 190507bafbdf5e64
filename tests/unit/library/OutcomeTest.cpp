#include <gtest/gtest.h>

#include "Platform/sockets/SocketError.h"
#include "VeskoKit/VeskoItem.h"
#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko {
namespace {

TEST(Outcome, IsDescribedByThingAndCause) {
  VeskoTransferOutcome outcome;
  EXPECT_EQ(outcome.description(), "finished");
  outcome.droppedCount = 1;
  EXPECT_EQ(outcome.description(), "finished, but 1 element could not be stored");
  outcome.droppedCount = 2000;
  EXPECT_EQ(outcome.description(), "finished, but 2000 elements could not be stored");

  outcome.kind = VeskoTransferOutcome::Kind::failed;
  outcome.reason = VeskoFailureReason::timedOut;
  EXPECT_EQ(outcome.description(), "the other side stopped responding");
  outcome.keptPath = "/d/x";
  EXPECT_EQ(outcome.description(), "the other side stopped responding; what had fully arrived is in \"/d/x\"");
  outcome.keptPath.clear();
  outcome.reason = VeskoFailureReason::storage;
  outcome.operation = "storing";
  outcome.element = "a";
  outcome.error = std::make_error_code(std::errc::permission_denied);
  EXPECT_EQ(outcome.description(), "storing \"a\": it cannot be stored (Permission denied)");
  outcome.reason = VeskoFailureReason::connectionLost;
  outcome.element.clear();
  outcome.error = SocketErrc::endOfStream;
  EXPECT_EQ(outcome.description(), "storing: the connection was closed by the other side");
  EXPECT_EQ(
      descriptionOf({"/a/pipe", VeskoFailureReason::notReadable, std::make_error_code(std::errc::invalid_argument)}),
      "\"/a/pipe\": it is neither a file nor a folder");
  EXPECT_EQ(descriptionOf({"/a", VeskoFailureReason::notReadable, VeskoItemErrc::notAFolder}),
            "\"/a\": it is a file, not a folder");
}

}  // namespace
}  // namespace vesko
