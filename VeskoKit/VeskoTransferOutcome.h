#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace vesko {

class VeskoIncomingTransfer;
class VeskoTransfer;

/// Why a transfer failed, or why an element was left out of it.
enum class VeskoFailureReason : std::uint8_t {
  none,
  notFound,           ///< the file or folder does not exist
  notReadable,        ///< it exists but cannot be read, or is neither a file nor a folder
  connectionRefused,  ///< no program accepts transfers at the address
  unreachable,        ///< the address cannot be reached, or does not answer
  timedOut,           ///< the peer stopped sending, or stopped acknowledging what was sent
  connectionLost,     ///< the connection was reset or closed before the end of the stream
  unsafeName,         ///< a name that could lead out of the folder that is received into
  invalidText,        ///< a name or text that is not UTF-8
  limit,              ///< something exceeds what is accepted; `error` and the description say what
  noSpace,            ///< the disk is full, the quota is used up, or the file is larger than the limit for files
  storage,            ///< the disk or folder that is received into failed in another way
  sourceChanged,      ///< a file became shorter, was removed or was replaced while it was being sent
  refused,            ///< the host's guard refused the transfer
  unconfirmed,        ///< every byte was acknowledged, but the peer never closed to say that it has stored them
  cancelled,          ///< this side called `cancel`
};

/// The name of the reason, spelled as in the enumeration: "notFound" for `notFound`.
[[nodiscard]] std::string_view nameOfFailureReason(VeskoFailureReason reason) noexcept;

/// One element that was left out, and why.
struct VeskoSkippedElement {
  std::string element;  ///< its name in the stream; when sending, its path on this machine
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::error_code error;  ///< the code of the system or of this library; none where there is no more to tell
};

/// One sentence for people that names the element and the cause, without a full stop. Control characters are not
/// escaped.
[[nodiscard]] std::string descriptionOf(const VeskoSkippedElement& skipped);

/// How a transfer ended. A transfer that finished may still have dropped single elements.
struct VeskoTransferOutcome {
  enum class Kind : std::uint8_t { finished, failed, cancelled };

  Kind kind = Kind::finished;
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::string operation;  ///< what was being done, such as "connecting to ..." or "storing"; may be empty
  std::error_code error;  ///< the code of the system or of this library; none where there is no more to tell
  std::string element;    ///< the name of the element under way; empty where there was none

  /// Received elements that could not be stored: the first `maximumListed` of them, and the number of all.
  std::vector<VeskoSkippedElement> dropped;
  std::size_t droppedCount = 0;

  /// Where the elements are that a failed incoming transfer had received completely; empty unless they were to be kept
  /// (`VeskoServer::keepPartial`) and there were any.
  std::string keptPath;

  static constexpr std::size_t maximumListed = 1000;  ///< bounds the memory that a hostile stream can make us use

  /// One sentence for people that names the element and the cause, without a full stop. Control characters are not
  /// escaped; see `Log::escaped`.
  [[nodiscard]] std::string description() const;
};

/// Is told how transfers ended, outgoing and incoming ones. Each transfer that was started makes exactly one call, its
/// last, on the transfer's queue. Only a transfer that is destroyed before its end makes none. The transfer may be
/// released inside the call.
class VeskoTransferOutcomeDelegate {
 public:
  virtual ~VeskoTransferOutcomeDelegate() = default;
  virtual void transferDidEnd(VeskoTransfer& /*transfer*/, const VeskoTransferOutcome& /*outcome*/) {}
  virtual void incomingTransferDidEnd(VeskoIncomingTransfer& /*transfer*/, const VeskoTransferOutcome& /*outcome*/) {}
};

}  // namespace vesko
