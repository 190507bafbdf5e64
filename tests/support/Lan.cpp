#include "tests/support/Lan.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <future>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "tests/support/IsSoon.h"

namespace vesko {
namespace {

// Holds the bridges, so that no device, address or route of the machine itself changes.
constexpr auto switchName = "switch";

/// Runs ip(8), which reads `lines`.
void runIp(std::vector<std::string> arguments, const std::string& lines) {
  arguments.insert(arguments.begin(), "ip");
  arguments.insert(arguments.end(), {"-batch", "-"});
  Process ip({std::move(arguments), lines, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin"}, {}});
  if (ip.wait() != 0) throw std::runtime_error(ip.errors());
}

/// The kernel brings a link up behind the back of who asks for it; what is sent before is lost.
void awaitLink(const std::string& device) {
  const FileDescriptor any(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  device.copy(request.ifr_name, IFNAMSIZ - 1);
  if (!isSoon([&] { return ::ioctl(any.get(), SIOCGIFFLAGS, &request) < 0 || (request.ifr_flags & IFF_RUNNING) != 0; }))
    throw std::runtime_error(device + " gets no link");
}

}  // namespace

Lan::Lan() : prefix_("veskolan-" + std::to_string(::getpid()) + '-') {
  try {
    addSpace(switchName);
    for (const std::string bridge : {"bridge0", "bridge1"})
      configure(switchName, "link add " + bridge + " type bridge\nlink set " + bridge + " up\n");
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

void Lan::plug(int machine, int network) {
  const auto number = std::to_string(network);
  const auto device = "eth" + number;
  const auto port = nameOf(machine) + '-' + number;
  configure(switchName, "link add " + port + " type veth peer name " + device + " netns " + spaceOf(nameOf(machine)) +
                            "\nlink set " + port + " master bridge" + number + " up\n");
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
           chmod 700 "$1" && hostname "$0" && export HOME="$1" XDG_RUNTIME_DIR="$1" && shift && exec "$@"' "$@")";
  arguments.insert(arguments.begin(),
                   {"/bin/sh", "-c", script, spaceOf(nameOf(machine)), nameOf(machine), homeOf(machine)});
  return {std::move(arguments), "", {"NO_COLOR=1"}, {}};
}

void Lan::inside(const std::string& name, const std::function<void()>& task) const {
  std::async(std::launch::async, [&] {
    const FileDescriptor space(::open(("/run/netns/" + spaceOf(name)).c_str(), O_RDONLY | O_CLOEXEC));
    if (::setns(space.get(), CLONE_NEWNET) != 0) throw std::system_error(errno, std::generic_category(), name);
    task();
  }).get();
}

RawDatagrams Lan::socketOn(int machine, std::uint16_t port) const {
  std::optional<RawDatagrams> socket;
  inside(machine, [&] { socket.emplace(port, "0.0.0.0"); });
  return std::move(*socket);
}

}  // namespace vesko
