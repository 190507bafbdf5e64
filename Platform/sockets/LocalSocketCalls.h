#pragma once

#include <string>
#include <system_error>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

/// What sockets of the file system ask of the system. Descriptors are non-blocking; a call that would have to wait
/// reports `std::errc::operation_would_block`. The other side is always the current user, else the error is
/// `std::errc::permission_denied`. Any thread.
namespace LocalSocketCalls {

/// `std::errc::filename_too_long` for a path that does not fit into a socket's address (unix(7)), here and below.
[[nodiscard]] FileDescriptor connect(const std::string& path, std::error_code& error);

/// A socket that listens at `path`, where nothing may be yet, with mode 0600.
[[nodiscard]] FileDescriptor listen(const std::string& path, std::error_code& error);

/// True when the other side of a connection is the current user.
[[nodiscard]] bool isOfUser(const FileDescriptor& connection);

}  // namespace LocalSocketCalls
}  // namespace vesko
