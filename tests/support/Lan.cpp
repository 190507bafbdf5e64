#include "tests/support/Lan.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <system_error>

namespace vesko {
namespace {

constexpr int patience = 10'000;  // milliseconds

// Holds the bridges, so that no device, address or route of the machine itself changes.
constexpr auto switchName = "switch";

int checked(int result) {
  if (result < 0) throw std::system_error(errno, std::generic_category());
  return result;
}

bool isReadable(const FileDescriptor& descriptor) {
  pollfd poll{descriptor.get(), POLLIN, 0};
  return ::poll(&poll, 1, patience) == 1;
}

sockaddr_in socketAddress(const std::string& ip, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  ::inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
  return address;
}

/// Runs ip(8), which reads `lines`.
void runIp(std::vector<std::string> arguments, const std::string& lines) {
  arguments.insert(arguments.begin(), {"/usr/bin/env", "ip"});
  arguments.insert(arguments.end(), {"-batch", "-"});
  Process ip({std::move(arguments), lines, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"}, {}});
  if (ip.wait() != 0) throw std::runtime_error(ip.errors());
}

bool hasLink(const std::string& device) {
  const FileDescriptor any(checked(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
  ifreq request{};
  device.copy(request.ifr_name, IFNAMSIZ - 1);
  checked(::ioctl(any.get(), SIOCGIFFLAGS, &request));
  return (request.ifr_flags & IFF_RUNNING) != 0;
}

/// The kernel brings a link up behind the back of who asks for it; what is sent before is lost.
void awaitLink(const std::string& device) {
  const FileDescriptor changes(checked(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)));
  const sockaddr_nl group{AF_NETLINK, 0, 0, RTMGRP_LINK};
  checked(::bind(changes.get(), reinterpret_cast<const sockaddr*>(&group), sizeof group));
  while (!hasLink(device)) {
    std::array<char, 8192> change;
    if (!isReadable(changes)) throw std::runtime_error(device + " gets no link");
    checked(static_cast<int>(::recv(changes.get(), change.data(), change.size(), 0)));
  }
}

}  // namespace

Lan::Lan() : prefix_("veskolan-" + std::to_string(::getpid()) + '-') {
  try {
    addSpace(switchName);
  } catch (...) {
    removeSpaces();
    throw;
  }
}

Lan::~Lan() { removeSpaces(); }

void Lan::addSpace(const std::string& name) {
  runIp({}, "netns add " + spaceOf(name) + '\n');
  names_.push_back(name);
  configure(name, "link set lo up\n");
}

void Lan::removeSpaces() const {
  std::string lines;
  for (const auto& name : names_) lines += "netns del " + spaceOf(name) + '\n';
  try {
    runIp({"-force"}, lines);
  } catch (const std::exception& error) {
    ADD_FAILURE() << error.what();
  }
}

void Lan::addMachine(int machine) {
  addSpace(nameOf(machine));
  const auto folder = folder_.makeFolder(nameOf(machine));
  std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
}

void Lan::plug(int machine, int network) {
  const auto bridge = "bridge" + std::to_string(network);
  const auto device = "eth" + std::to_string(network);
  const auto port = nameOf(machine) + '-' + std::to_string(network);
  bool isNew = true;
  inside(switchName, [&] { isNew = ::if_nametoindex(bridge.c_str()) == 0; });
  const auto addBridge = "link add " + bridge + " type bridge\nlink set " + bridge + " up\n";
  configure(switchName, (isNew ? addBridge : "") + "link add " + port + " type veth peer name " + device + " netns " +
                            spaceOf(nameOf(machine)) + "\nlink set " + port + " master " + bridge + " up\n");
  configure(machine, "link set " + device + " up\n");
  inside(machine, [&] { awaitLink(device); });
  inside(switchName, [&] { awaitLink(port); });
  configure(machine, "address add " + address(machine, network) + "/24 dev " + device + '\n');
}

void Lan::configure(const std::string& name, const std::string& lines) const { runIp({"-n", spaceOf(name)}, lines); }

Process::Setup Lan::setupFor(int machine, std::vector<std::string> arguments) const {
  // A name for people would be used instead of the host name, and is that of the real machine.
  constexpr auto script =
      R"(PATH=$PATH:/usr/sbin:/sbin; exec ip netns exec "$0" unshare --uts sh -c '
           [ ! -e /etc/machine-info ] || mount --bind /dev/null /etc/machine-info &&
           hostname "$0" && HOME=$1 XDG_RUNTIME_DIR=$1 && export HOME XDG_RUNTIME_DIR && shift && exec "$@"' "$@")";
  const auto name = nameOf(machine);
  arguments.insert(arguments.begin(), {"/bin/sh", "-c", script, spaceOf(name), name, folder_.path(name)});
  return {std::move(arguments), "", {"NO_COLOR=1"}, {}};
}

void Lan::inside(const std::string& name, const std::function<void()>& task) const {
  std::async(std::launch::async, [&] {
    const auto path = "/run/netns/" + spaceOf(name);
    const FileDescriptor space(checked(::open(path.c_str(), O_RDONLY | O_CLOEXEC)));
    checked(::setns(space.get(), CLONE_NEWNET));
    task();
  }).get();
}

LanSocket::LanSocket(const Lan& lan, int machine, std::uint16_t port, int type) {
  lan.inside(machine, [&] {
    descriptor_ = FileDescriptor(checked(::socket(AF_INET, type | SOCK_CLOEXEC, 0)));
    const auto local = socketAddress("0.0.0.0", port);
    checked(::bind(descriptor_.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local));
  });
  const int yes = 1;
  checked(::setsockopt(descriptor_.get(), SOL_SOCKET, SO_BROADCAST, &yes, sizeof yes));
}

void LanSocket::send(std::string_view bytes, const std::string& address, std::uint16_t port) const {
  const auto to = socketAddress(address, port);
  checked(static_cast<int>(
      ::sendto(descriptor_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to)));
}

std::string LanSocket::receive() const {
  if (!isReadable(descriptor_)) return {};
  std::array<char, 65536> bytes;
  sockaddr_in from{};
  socklen_t length = sizeof from;
  const auto count = checked(static_cast<int>(
      ::recvfrom(descriptor_.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &length)));
  std::array<char, INET_ADDRSTRLEN> ip{};
  ::inet_ntop(AF_INET, &from.sin_addr, ip.data(), ip.size());
  return std::string(ip.data()) + ':' + std::to_string(ntohs(from.sin_port)) + ' ' +
         std::string(bytes.data(), static_cast<std::size_t>(count));
}

}  // namespace vesko
