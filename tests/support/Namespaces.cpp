#include "tests/support/Namespaces.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

#include "Platform/files/FileDescriptor.h"

namespace vesko {
namespace {

bool startLoopback() {
  const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::string("lo").copy(request.ifr_name, IFNAMSIZ - 1);
  request.ifr_flags = IFF_UP;
  return ::ioctl(socket.get(), SIOCSIFFLAGS, &request) == 0;
}

}  // namespace

bool enterOwnSpaces(int kinds) {
  const std::string user = std::to_string(::geteuid());
  const std::string group = std::to_string(::getegid());
  if (::geteuid() == 0) return ::unshare(kinds) == 0;
  if (::unshare(kinds | CLONE_NEWUSER) != 0) return false;
  // One without a number among the new users could make no file.
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << user + ' ' + user + " 1";
  std::ofstream("/proc/self/gid_map") << group + ' ' + group + " 1";
  return true;
}

bool enterOwnMounts(int more) {
  return enterOwnSpaces(CLONE_NEWNS | more) && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool enterOwnNetwork() { return enterOwnSpaces(CLONE_NEWNET) && startLoopback(); }

bool replaceFolder(const char* replaced, const std::string& folder) {
  return ::mount(folder.c_str(), replaced, nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace vesko
