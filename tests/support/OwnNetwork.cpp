#include "tests/support/OwnNetwork.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "Platform/files/FileDescriptor.h"

namespace vesko {
namespace {

/// An ordinary user may have a network only among users of its own; there it stays who it is.
bool enterOwnUsers() {
  const std::string user = std::to_string(::geteuid());
  const std::string group = std::to_string(::getegid());
  if (::unshare(CLONE_NEWUSER) != 0) return false;
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << user + ' ' + user + " 1";
  std::ofstream("/proc/self/gid_map") << group + ' ' + group + " 1";
  return true;
}

bool startLoopback() {
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::string("lo").copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_flags = IFF_UP;
  return ::ioctl(socket.get(), SIOCSIFFLAGS, &request) == 0;
}

}  // namespace

bool enterOwnNetwork() {
  if (::geteuid() != 0 && !enterOwnUsers()) return false;
  return ::unshare(CLONE_NEWNET) == 0 && startLoopback();
}

}  // namespace vesko
