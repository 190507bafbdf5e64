#pragma once

#include <system_error>

namespace vesko {

/// The limit that a transfer or element exceeded, as the error code of `VeskoFailureReason::limit`.
enum class TransferLimit {
  size = 1,     ///< of all bodies: more bytes than are accepted
  textLength,   ///< of a text: `VeskoText::maximumLength`
  nameLength,   ///< of an element's name: `TransferStream::maximumNameLength`
  nameDepth,    ///< components of a name: `TransferStream::maximumNameDepth`
  connections,  ///< incoming transfers at once: `VeskoServer::maximumIncomingTransfers`
};

/// An error code whose message tells people the limit.
[[nodiscard]] std::error_code make_error_code(TransferLimit limit) noexcept;

}  // namespace vesko

template <>
struct std::is_error_code_enum<vesko::TransferLimit> : std::true_type {};
