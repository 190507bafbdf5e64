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

/// Why a transfer did not come to its end, or an element was left out of it.
enum class VeskoFailureReason : std::uint8_t {
  none,
  notFound,           ///< the file or folder does not exist
  notReadable,        ///< it exists but cannot be read, or is no file or folder
  connectionRefused,  ///< nobody listens at the address
  unreachable,        ///< no way to the address, or it does not answer
  timedOut,           ///< the other side stopped taking part
  connectionLost,     ///< the connection ended before the stream did
  unsafeName,         ///< a name that could lead out of the folder received into
  invalidText,        ///< a name or snippet that is not UTF-8
  limit,              ///< larger, longer, deeper or more than is accepted; the description says which
  noSpace,            ///< no room on the disk, no quota left, or a limit of file sizes
  storage,            ///< the disk or folder received into failed otherwise
  sourceChanged,      ///< a file shrank, vanished or was replaced while it was being sent
  refused,            ///< the host's guard does not let the transfer in
  unconfirmed,        ///< all was handed over, but the other side never said that it has it
  cancelled,          ///< somebody here asked for the end
};

/// The reason's name, as written above.
[[nodiscard]] std::string_view nameOfFailureReason(VeskoFailureReason reason) noexcept;

/// One element that was left out, and why.
struct VeskoSkippedElement {
  std::string element;  ///< its name in the stream or, when sending, its path
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::error_code error;  ///< the system's code, where there is one
};

/// One sentence that names the element and the cause, made as `VeskoTransferOutcome::description` is.
[[nodiscard]] std::string descriptionOf(const VeskoSkippedElement& skipped);

/// How a transfer ended.
struct VeskoTransferOutcome {
  enum class Kind : std::uint8_t { finished, failed, cancelled };

  Kind kind = Kind::finished;
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::string operation;  ///< what was being done: "connecting", "writing a file"; empty when finished
  std::error_code error;  ///< the system's code for what went wrong, where there is one
  std::string element;    ///< the name of the element under way, where there was one

  /// Elements that arrived but could not be stored, the first `maximumListed` of them, and how many there were.
  std::vector<VeskoSkippedElement> dropped;
  std::size_t droppedCount = 0;

  /// Where what had fully arrived of a failed transfer was kept; empty unless that was asked for.
  std::string keptPath;

  static constexpr std::size_t maximumListed = 1000;  ///< bounds what a hostile stream can make us remember

  /// One sentence that names the thing and the cause, without a full stop; control characters are not escaped.
  [[nodiscard]] std::string description() const;
};

/// Hears the end of transfers of either kind: exactly one call for each transfer that was started, its last, on the
/// queue of the transfer. The transfer may be released inside the call.
class VeskoTransferOutcomeDelegate {
 public:
  virtual ~VeskoTransferOutcomeDelegate() = default;
  virtual void transferDidEnd(VeskoTransfer& /*transfer*/, const VeskoTransferOutcome& /*outcome*/) {}
  virtual void incomingTransferDidEnd(VeskoIncomingTransfer& /*transfer*/, const VeskoTransferOutcome& /*outcome*/) {}
};

}  // namespace vesko
