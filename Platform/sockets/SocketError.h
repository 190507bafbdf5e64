#pragma once

#include <cstdint>
#include <string_view>
#include <system_error>

namespace vesko {

/// What ends a connection besides the errors of the system.
enum class SocketErrc {
  endOfStream = 1,  ///< the other side closed in good order, while more was expected
  sourceEnded,      ///< a file that was being sent ended before its announced length
  unconfirmed,      ///< the other side has acknowledged every byte, but never closed
};

[[nodiscard]] std::error_code make_error_code(SocketErrc code) noexcept;

/// Why a connection ended: what was being done and the system's code. A time-out is `std::errc::timed_out`.
struct SocketError {
  enum class Operation : std::uint8_t {
    none,         ///< nothing went wrong
    listen,       ///< opening a listening port
    connect,      ///< reaching the other side
    read,         ///< reading from the connection
    write,        ///< writing to the connection
    source,       ///< reading the file that was being sent
    destination,  ///< writing the file that a read was storing to
  };

  Operation operation = Operation::none;
  std::error_code code;

  [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(code); }
};

}  // namespace vesko

template <>
struct std::is_error_code_enum<vesko::SocketErrc> : std::true_type {};
