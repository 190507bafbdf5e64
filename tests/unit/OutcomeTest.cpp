#include <gtest/gtest.h>

#include "Platform/SocketError.h"
#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko {
namespace {

using Kind = VeskoTransferOutcome::Kind;
using Reason = VeskoFailureReason;

VeskoTransferOutcome failure(Reason reason, std::string operation, std::string element, std::error_code error = {}) {
  VeskoTransferOutcome outcome;
  outcome.kind = Kind::failed;
  outcome.reason = reason;
  outcome.operation = std::move(operation);
  outcome.error = error;
  outcome.element = std::move(element);
  return outcome;
}

TEST(Outcome, AFailureIsDescribedByThingAndCause) {
  const auto refused = std::make_error_code(std::errc::connection_refused);
  const auto noAccess = std::make_error_code(std::errc::permission_denied);
  const struct {
    VeskoTransferOutcome outcome;
    const char* description;
  } cases[] = {
      {failure(Reason::connectionRefused, "connecting to 10.0.0.2", "", refused),
       "connecting to 10.0.0.2: the connection was refused, nothing accepts transfers there"},
      {failure(Reason::noSpace, "storing", "a.jpg"), "storing \"a.jpg\": no space left on the disk"},
      {failure(Reason::storage, "storing", "a", noAccess), "storing \"a\": it cannot be stored (Permission denied)"},
      {failure(Reason::connectionLost, "receiving", "", SocketErrc::endOfStream),
       "receiving: the connection was closed by the other side"},
      {failure(Reason::invalidText, "", "a"), "\"a\": not valid UTF-8"},
      {failure(Reason::timedOut, "", ""), "the other side stopped responding"},
  };
  for (const auto& [outcome, description] : cases) EXPECT_EQ(outcome.description(), description);

  auto kept = failure(Reason::timedOut, "", "");
  kept.keptPath = "/d/x";
  EXPECT_EQ(kept.description(), "the other side stopped responding; what had fully arrived is in \"/d/x\"");
  EXPECT_EQ(descriptionOf({"/a/pipe", Reason::notReadable, std::make_error_code(std::errc::invalid_argument)}),
            "\"/a/pipe\": it is neither a file nor a folder");
  EXPECT_EQ(descriptionOf({"/a/secret", Reason::notReadable, noAccess}),
            "\"/a/secret\": it cannot be read (Permission denied)");
}

TEST(Outcome, TellsWhatCouldNotBeStored) {
  VeskoTransferOutcome outcome;
  EXPECT_EQ(outcome.description(), "finished");
  outcome.droppedCount = 1;
  EXPECT_EQ(outcome.description(), "finished, but 1 element could not be stored");
  outcome.droppedCount = 2000;
  EXPECT_EQ(outcome.description(), "finished, but 2000 elements could not be stored");
}

}  // namespace
}  // namespace vesko
