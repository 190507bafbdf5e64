#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "Platform/sockets/SocketError.h"
#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko::TransferFailure {

/// The outcome of a transfer that failed while `operation` was being done. `element`: the name of the current element.
/// All of these: any thread.
[[nodiscard]] VeskoTransferOutcome make(VeskoFailureReason reason, std::string operation, std::error_code error,
                                        std::string element);

/// The outcome of a transfer whose connection failed.
[[nodiscard]] VeskoTransferOutcome fromSocket(const SocketError& error, std::string element);

/// The outcome of a transfer that was cancelled on this side.
[[nodiscard]] VeskoTransferOutcome cancelled();

/// What is wrong with the name of an element. `reason` is `none` for a good name; `error` is the limit that was
/// exceeded, if any.
struct NameFault {
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::error_code error;
};
[[nodiscard]] NameFault faultOfName(std::string_view name) noexcept;

/// The reason for an error of a file that is being sent.
[[nodiscard]] VeskoFailureReason reasonOfSource(std::error_code error);

/// The reason for an error of the disk that is received to.
[[nodiscard]] VeskoFailureReason reasonOfStorage(std::error_code error);

}  // namespace vesko::TransferFailure
