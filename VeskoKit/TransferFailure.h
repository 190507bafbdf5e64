#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "Platform/sockets/SocketError.h"
#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko::TransferFailure {

/// The outcome of a transfer that failed while `operation` was being done, with `element` under way.
[[nodiscard]] VeskoTransferOutcome make(VeskoFailureReason reason, std::string operation, std::error_code error,
                                        std::string element);

/// The outcome of a transfer whose connection ended before its time.
[[nodiscard]] VeskoTransferOutcome fromSocket(const SocketError& error, std::string element);

/// The outcome of a transfer whose own side ended it.
[[nodiscard]] VeskoTransferOutcome cancelled();

/// What is wrong with an element's name: the reason, with the limit where it is one; `none` for a good name.
struct NameFault {
  VeskoFailureReason reason = VeskoFailureReason::none;
  std::error_code error;
};
[[nodiscard]] NameFault faultOfName(std::string_view name) noexcept;

/// What an error of a file that is being sent means.
[[nodiscard]] VeskoFailureReason reasonOfSource(std::error_code error);

/// What an error of the disk that is being received to means.
[[nodiscard]] VeskoFailureReason reasonOfStorage(std::error_code error);

}  // namespace vesko::TransferFailure
