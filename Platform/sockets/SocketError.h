#pragma once

#include <cstdint>
#include <string_view>
#include <system_error>

namespace vesko {

/// Errors that end a connection and are not errors of the system.
enum class SocketErrc {
  endOfStream = 1,  ///< the other side closed in good order while more was expected
  sourceEnded,      ///< a file that is being sent has become shorter than announced
  unconfirmed,      ///< the other side acknowledged every byte but did not close
};

[[nodiscard]] std::error_code make_error_code(SocketErrc code) noexcept;

/// Why a connection ended: what was being done, and the error code. A time-out is `std::errc::timed_out`.
struct SocketError {
  enum class Operation : std::uint8_t {
    none,         ///< nothing went wrong
    listen,       ///< opening a listening port
    connect,      ///< connecting to the other side
    read,         ///< reading from the connection
    write,        ///< writing to the connection
    source,       ///< reading the file that is being sent
    destination,  ///< writing the file that is being received into
  };

  Operation operation = Operation::none;
  std::error_code code;

  [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(code); }
};

}  // namespace vesko

template <>
struct std::is_error_code_enum<vesko::SocketErrc> : std::true_type {};
