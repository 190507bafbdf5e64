#include "hosts/cli/Lookup.h"

#include <algorithm>
#include <utility>

#include "Platform/network/PortHolders.h"
#include "VeskoKit/VeskoServer.h"
#include "hosts/common/control/ControlClient.h"
#include "hosts/common/session/Session.h"

namespace vesko {

std::chrono::steady_clock::time_point timeIn(std::chrono::duration<double> wait) {
  return std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::nanoseconds>(wait);
}

Lookup::Lookup(Program& program) : program_(program) {
  program_.interrupts.handle([events = events_] { events->interrupt(); }, ExitCode::interrupted);
}

Lookup::~Lookup() {
  session_.reset();
  program_.interrupts.handle({}, ExitCode::interrupted);
}

std::optional<StartupFailureEvent> Lookup::tryStart() { return askHosts() ? std::nullopt : startSession(); }

bool Lookup::askHosts() {
  if (askHost(program_.options.port)) return true;
  // A host on another port is asked too. Other machines know this one only by its address: our hello would replace the
  // host's entry in their tables, and our goodbye would remove it.
  return std::ranges::any_of(ControlClient::runningPorts(), [this](auto other) { return askHost(other); });
}

ExitCode Lookup::start() {
  const auto failure = tryStart();
  if (!failure) return ExitCode::success;
  program_.reporter.report(*failure);
  program_.console.complain(
      "without this port no machine can be found by name; `vesko doctor` shows which program holds it. Sending to an "
      "address still works: --to 192.168.1.20");
  return ExitCode::startup;
}

bool Lookup::askHost(std::uint16_t port) {
  auto client = ControlClient::connect(port);
  if (!client) return false;
  const auto known = client->watch(events_, [events = events_] { events->finish(); });
  if (!known) return false;
  for (const auto& peer : known->peers) state_.apply(PeerAppearedEvent{peer});
  heardFor_ = known->heardFor;
  host_ = std::move(client);
  return true;
}

std::optional<StartupFailureEvent> Lookup::startSession() {
  SessionSettings settings;
  settings.port = program_.options.port;
  // The usual port may be held by a host of another user, which cannot be asked. For the same reason it must not be
  // replaced in the tables of others.
  constexpr std::uint16_t usual = VeskoServer::defaultPort;
  if (settings.port != usual && !PortHolders::of(PortProtocol::udp, usual).empty()) {
    return StartupFailureEvent{
        "udp",
        usual,
        {},
        "another program on this machine holds it, and other machines know this one only by its address"};
  }
  session_ = std::make_unique<Session>(events_, settings);
  if (session_->startLooking()) return std::nullopt;
  while (const auto event = events_->nextWaiting()) {
    if (const auto* failure = std::get_if<StartupFailureEvent>(&*event)) return *failure;
  }
  return StartupFailureEvent{"udp", settings.port, {}, "unknown"};
}

void Lookup::announce() {
  if (host_) host_->announce();
  if (session_) session_->announce();
}

std::optional<Event> Lookup::next(const Deadline& deadline) {
  auto event = events_->next(deadline);
  if (!event) return event;
  if (auto* const gone = std::get_if<PeerDisappearedEvent>(&*event)) {
    // The event of a host only holds the key. The user wants to see the name.
    const auto known = peers().find(gone->peer.key);
    if (known != peers().end()) gone->peer = known->second;
  }
  state_.apply(*event);
  return event;
}

std::string Lookup::avatarOf(const std::string& key) {
  return host_ ? host_->avatarOf(key).value_or("") : session_->avatarOf(key);
}

void Lookup::listen(std::chrono::duration<double> wait) {
  const auto deadline = timeIn(wait);
  while (next(deadline)) {
  }
}

}  // namespace vesko
