#include "VeskoKit/VeskoTransferOutcome.h"

#include <array>

#include "Platform/sockets/SocketError.h"
#include "VeskoKit/VeskoItem.h"

namespace vesko {
namespace {

struct ReasonText {
  VeskoFailureReason reason;
  std::string_view name;
  std::string_view cause;
  bool needsDetail = false;  ///< append the message of the system's error
};

using enum VeskoFailureReason;
constexpr std::array reasonTexts = {
    ReasonText{none, "none", "something unexpected went wrong", true},
    ReasonText{notFound, "notFound", "it does not exist"},
    ReasonText{notReadable, "notReadable", "it cannot be read", true},
    ReasonText{connectionRefused, "connectionRefused", "the connection was refused, nothing accepts transfers there"},
    ReasonText{unreachable, "unreachable", "the address cannot be reached", true},
    ReasonText{timedOut, "timedOut", "the other side stopped responding"},
    ReasonText{connectionLost, "connectionLost", "the connection was lost", true},
    ReasonText{unsafeName, "unsafeName", "a name like this could lead out of the receiving folder"},
    ReasonText{invalidText, "invalidText", "not valid UTF-8"},
    ReasonText{limit, "limit", "its name or path is longer than this system takes"},
    ReasonText{noSpace, "noSpace", "no space left on the disk"},
    ReasonText{storage, "storage", "it cannot be stored", true},
    ReasonText{sourceChanged, "sourceChanged", "the file changed while it was being sent", true},
    ReasonText{refused, "refused", "this computer does not accept it"},
    ReasonText{unconfirmed, "unconfirmed", "the other side never said that it has everything"},
    ReasonText{cancelled, "cancelled", "it was cancelled"},
};

constexpr bool isIndexedByReason() {
  for (std::size_t index = 0; index < reasonTexts.size(); ++index) {
    if (reasonTexts[index].reason != static_cast<VeskoFailureReason>(index)) return false;
  }
  return reasonTexts.back().reason == cancelled;
}
static_assert(isIndexedByReason());

const ReasonText& textOf(VeskoFailureReason reason) noexcept { return reasonTexts[static_cast<std::size_t>(reason)]; }

/// True for an error code of this library, whose message is a whole explanation. Messages of the system are not.
bool isOurs(std::error_code error) noexcept {
  return error && error.category() != std::system_category() && error.category() != std::generic_category();
}

std::string causeOf(VeskoFailureReason reason, std::error_code error) {
  if (isOurs(error)) return error.message();
  if (reason == notReadable && error == std::errc::invalid_argument) return "it is neither a file nor a folder";
  if (reason == notReadable && error == std::errc::too_many_symbolic_link_levels) return "its links lead in a circle";
  if (reason == noSpace && error == std::errc::file_too_large) return "files as large as that cannot be stored there";
  const ReasonText& text = textOf(reason);
  std::string cause(text.cause);
  if (text.needsDetail && error) cause += " (" + error.message() + ")";
  return cause;
}

std::string quoted(const std::string& text) { return '"' + text + '"'; }

std::string descriptionOfFinished(std::size_t droppedCount) {
  if (droppedCount == 0) return "finished";
  return "finished, but " + std::to_string(droppedCount) + (droppedCount == 1 ? " element" : " elements") +
         " could not be stored";
}

}  // namespace

std::string_view nameOfFailureReason(VeskoFailureReason reason) noexcept { return textOf(reason).name; }

std::string descriptionOf(const VeskoSkippedElement& skipped) {
  return quoted(skipped.element) + ": " + causeOf(skipped.reason, skipped.error);
}

std::string VeskoTransferOutcome::description() const {
  if (kind == Kind::finished) return descriptionOfFinished(droppedCount);
  if (kind == Kind::cancelled) return "cancelled";
  std::string text = operation;
  if (!text.empty() && !element.empty()) text += ' ';
  if (!element.empty()) text += quoted(element);
  if (!text.empty()) text += ": ";
  text += causeOf(reason, error);
  if (!keptPath.empty()) text += "; what had fully arrived is in " + quoted(keptPath);
  return text;
}

}  // namespace vesko
