#include "hosts/cli/PeerChoice.h"
#include "Platform/text/Numbers.h"

#include <algorithm>
#include <iostream>
#include <utility>
#include <vector>

#include "hosts/cli/Lookup.h"
#include "hosts/common/session/PeerAddress.h"
#include "hosts/common/session/PeerNames.h"

namespace vesko {
namespace {

using Seconds = std::chrono::duration<double>;
using Peers = std::map<std::string, PeerView>;

bool isAt(const PeerView& peer, const PeerAddress& address) { return PeerAddress{peer.ip, peer.port} == address; }

void list(Console& console, const std::vector<PeerView>& peers) {
  for (const auto& peer : peers) console.note("  " + describedPeer(peer));
}

ExitCode complainNobody(Program& program) {
  program.console.complain(Lookup::nobodyFound);
  return ExitCode::noSuchPeer;
}

PeerOrCode settle(Program& program, const std::string& name, const Peers& peers) {
  const auto matches = peersMatching(peers, name);
  if (matches.size() == 1) return matches.front();
  if (peers.empty()) return complainNobody(program);
  if (matches.empty()) {
    program.console.complain("no machine matches \"" + name + "\"; found:");
    list(program.console, peersByName(peers));
  } else {
    program.console.complain("\"" + name + "\" matches " + std::to_string(matches.size()) +
                             " machines; use more of the name, or the address:");
    list(program.console, matches);
  }
  return ExitCode::noSuchPeer;
}

/// True when the event is a hello of a machine whose complete name is `name`.
bool namesWhole(const Event& event, const std::string& name) {
  const auto isWhole = [&](const auto& any) { return isWholeNameOf(any.peer, name); };
  return std::visit(
      Overloaded{[&](const PeerAppearedEvent& any) { return isWhole(any); },
                 [&](const PeerUpdatedEvent& any) { return isWhole(any); }, [](const auto&) { return false; }},
      event);
}

/// Waits until all machines have had time to answer, or one with the complete name `name` has. False when the host that
/// was asked has exited meanwhile.
bool listenFor(Lookup& lookup, const std::string& name, Seconds wait) {
  const auto known = peersMatching(lookup.peers(), name);
  // No match yet: the host is made to say hello, and the machines get the whole wait.
  const bool isAnew = known.empty();
  if (!isAnew && isWholeNameOf(known.front(), name)) return true;
  if (lookup.isHosted() && isAnew) lookup.announce();
  const auto deadline = timeIn(isAnew ? wait : lookup.leftOf(wait));
  while (const auto event = lookup.next(deadline)) {
    if (namesWhole(*event, name)) return true;
  }
  return lookup.isInterrupted() || std::chrono::steady_clock::now() >= deadline;
}

PeerOrCode lookUp(Program& program, const std::string& name, Seconds wait) {
  Lookup lookup(program);
  if (const ExitCode code = lookup.start(); code != ExitCode::success) return code;
  const bool isHeard = listenFor(lookup, name, wait);
  if (lookup.isInterrupted()) return ExitCode::interrupted;
  if (isHeard) return settle(program, name, lookup.peers());
  program.console.complain(Lookup::hostGone);
  return ExitCode::unexpected;
}

/// The machine at `address`, with its name if a running host knows it. Announces nothing: an address needs no search.
PeerView peerAt(Program& program, const PeerAddress& address) {
  Lookup lookup(program);
  if (lookup.askHosts()) {
    for (const auto& [key, peer] : lookup.peers()) {
      if (isAt(peer, address)) return peer;
    }
  }
  return {address.ip, address.ip, address.port, "", "", {}};
}

/// All machines that answer in time, sorted by name; an exit code when there is none.
std::variant<std::vector<PeerView>, ExitCode> everybody(Program& program, Seconds wait) {
  Lookup lookup(program);
  if (const ExitCode code = lookup.start(); code != ExitCode::success) return code;
  const bool isAnew = lookup.peers().empty();
  if (lookup.isHosted() && isAnew) lookup.announce();
  if (const Seconds rest = isAnew ? wait : lookup.leftOf(wait); rest > Seconds()) {
    program.console.note("searching for other machines ...");
    lookup.listen(rest);
  }
  if (lookup.isInterrupted()) return ExitCode::interrupted;
  if (lookup.peers().empty()) return complainNobody(program);
  return peersByName(lookup.peers());
}

void showChoice(Console& console, const std::vector<PeerView>& peers) {
  for (std::size_t i = 0; i < peers.size(); ++i) {
    console.note("  " + std::to_string(i + 1) + "  " + describedPeer(peers[i]));
  }
}

/// The machine the user has typed: a number of the list, otherwise a name or a part of one.
PeerOrCode chosen(Program& program, const std::string& answer, const std::vector<PeerView>& peers) {
  const auto number = wholeNumber<std::size_t>(answer);
  if (number && *number >= 1 && *number <= peers.size()) return peers[*number - 1];
  Peers table;
  for (const auto& peer : peers) table.emplace(peer.key, peer);
  return settle(program, answer, table);
}

PeerOrCode choose(Program& program, Seconds wait) {
  const auto found = everybody(program, wait);
  if (const auto* code = std::get_if<ExitCode>(&found)) return *code;
  const auto& peers = std::get<std::vector<PeerView>>(found);
  showChoice(program.console, peers);
  std::string answer;
  while (answer.empty()) {
    program.console.ask("send to (number or name): ");
    if (!std::getline(std::cin, answer)) return ExitCode::noSuchPeer;
  }
  return chosen(program, answer, peers);
}

}  // namespace

PeerOrCode findPeer(Program& program, const std::string& name, Seconds wait) {
  if (const auto address = parsePeerAddress(name, program.options.port)) return peerAt(program, *address);
  if (const auto complaint = complaintAboutAddress(name)) {
    program.console.complain("--to \"" + name + "\": " + *complaint);
    return ExitCode::usage;
  }
  if (!name.empty()) return lookUp(program, name, wait);
  if (Console::inputIsTerminal() && program.console.showsBars()) return choose(program, wait);
  program.console.complain("no recipient: use --to PEER");
  return ExitCode::usage;
}

}  // namespace vesko
