#pragma once

#include <system_error>

namespace vesko {

/// Which limit a transfer or an element met that ended with `VeskoFailureReason::limit`; the outcome's error code.
enum class TransferLimit {
  size = 1,     ///< of all bodies: more bytes than are let in
  textLength,   ///< of a snippet: `VeskoText::maximumLength`
  nameLength,   ///< of an element's name: `TransferStream::maximumNameLength`
  nameDepth,    ///< folders in a name: `TransferStream::maximumNameDepth`
  connections,  ///< incoming transfers at once: `VeskoServer::maximumIncomingTransfers`
};

/// The code whose message is the limit in words for people.
[[nodiscard]] std::error_code make_error_code(TransferLimit limit) noexcept;

}  // namespace vesko

template <>
struct std::is_error_code_enum<vesko::TransferLimit> : std::true_type {};
