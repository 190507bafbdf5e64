#pragma once

#include <system_error>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

/// What the system says by itself about changes of the network interfaces (rtnetlink(7)).
///
/// A change is told before anything comes by it: what another machine or this one sends from a new address arrives
/// after the message about it.
class InterfaceChanges {
 public:
  /// Those from now on; `error` is set when the system cannot tell of them.
  explicit InterfaceChanges(std::error_code& error);

  /// True when there were any since the last call. Does not wait.
  [[nodiscard]] bool take();

  /// Readable when there are any; negative when the system cannot tell.
  [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }

 private:
  FileDescriptor descriptor_;
};

}  // namespace vesko
