#include "Platform/sockets/LocalSocketCalls.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "Platform/process/SystemError.h"
#include "Platform/user/Account.h"

namespace vesko::LocalSocketCalls {
namespace {

/// A system address of the path, and a socket for it.
struct Place {
  sockaddr_un address{};
  FileDescriptor descriptor;

  Place(const std::string& path, std::error_code& error) {
    // A name that is empty or begins with NUL would lie outside the file system, where anybody may take it.
    if (path.empty() || path.find('\0') != std::string::npos) {
      error = std::make_error_code(std::errc::invalid_argument);
    } else if (path.size() >= sizeof address.sun_path) {
      error = std::make_error_code(std::errc::filename_too_long);
    } else {
      address.sun_family = AF_UNIX;
      path.copy(address.sun_path, path.size());
      descriptor = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      error = descriptor ? std::error_code() : lastSystemError();
    }
  }

  [[nodiscard]] const sockaddr* systemAddress() const noexcept { return reinterpret_cast<const sockaddr*>(&address); }
};

std::error_code reasonAgainstPeer(const FileDescriptor& descriptor) {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (::getsockopt(descriptor.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) < 0) return lastSystemError();
  return peer.uid == userId() ? std::error_code() : std::make_error_code(std::errc::permission_denied);
}

}  // namespace

FileDescriptor connect(const std::string& path, std::error_code& error) {
  Place place(path, error);
  if (error) return {};
  if (uninterrupted([&] { return ::connect(place.descriptor.get(), place.systemAddress(), sizeof place.address); }) <
      0) {
    error = lastSystemError();
  } else {
    error = reasonAgainstPeer(place.descriptor);
  }
  if (error) place.descriptor.reset();
  return std::move(place.descriptor);
}

FileDescriptor listen(const std::string& path, std::error_code& error) {
  Place place(path, error);
  if (error) return {};
  const int descriptor = place.descriptor.get();
  // The mode comes before the listening: until then nobody gets in, whatever umask has left.
  if (::bind(descriptor, place.systemAddress(), sizeof place.address) < 0 ||
      ::chmod(path.c_str(), S_IRUSR | S_IWUSR) < 0 || ::listen(descriptor, SOMAXCONN) < 0) {
    error = lastSystemError();
    place.descriptor.reset();
  }
  return std::move(place.descriptor);
}

bool isOfUser(const FileDescriptor& connection) { return !reasonAgainstPeer(connection); }

}  // namespace vesko::LocalSocketCalls
