#pragma once

#include <system_error>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

/// The system's messages about changes of the network interfaces (rtnetlink(7)).
///
/// The message about a new address can be read before the first datagram that was sent from or to that address. On one
/// thread at a time.
class InterfaceChanges {
 public:
  /// Receives messages from now on. `error` is set when the system cannot send them.
  explicit InterfaceChanges(std::error_code& error);

  /// True when something has changed since the last call. Does not wait.
  [[nodiscard]] bool take();

  /// Readable when there are messages; negative when the system cannot send them.
  [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }

 private:
  FileDescriptor descriptor_;
};

}  // namespace vesko
