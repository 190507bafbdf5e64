#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <system_error>

#include "Platform/files/FileDescriptor.h"
#include "Platform/process/SystemError.h"

namespace vesko {

enum class Use { connect, listen };

/// A blocking socket that is connected to, or listens at, `path`.
inline FileDescriptor openRaw(const std::string& path, Use use) {
  FileDescriptor descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  const int result = use == Use::connect ? ::connect(descriptor.get(), generic, sizeof address)
                                         : ::bind(descriptor.get(), generic, sizeof address);
  if (result != 0 || (use == Use::listen && ::listen(descriptor.get(), 1) != 0)) {
    throw std::system_error(lastSystemError(), path);
  }
  return descriptor;
}

}  // namespace vesko
