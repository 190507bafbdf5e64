#include "hosts/cli/PeerChoice.h"

#include <algorithm>
#include <charconv>
#include <iostream>
#include <utility>
#include <vector>

#include "hosts/cli/Lookup.h"
#include "hosts/common/PeerNames.h"

namespace vesko {
namespace {

using Seconds = std::chrono::duration<double>;
using Peers = std::map<std::string, PeerView>;

/// What a second machine that the same name fits has for its answer, once the first has been heard: sending to the
/// wrong one is worse than this wait, and answers come within a few milliseconds.
constexpr std::chrono::milliseconds timeForOthers{100};

PeerAddress addressOf(const PeerView& peer) { return {peer.ip, peer.port}; }

void list(Console& console, const std::vector<PeerView>& peers) {
  for (const auto& peer : peers) console.note("  " + describedPeer(peer));
}

ExitCode complainNobody(Program& program) {
  program.console.complain(Lookup::nobodyFound);
  return ExitCode::noSuchPeer;
}

PeerOrCode settle(Program& program, const std::string& name, const Peers& peers) {
  const auto matches = peersMatching(peers, name).peers;
  if (matches.size() == 1) return addressOf(matches.front());
  if (peers.empty()) return complainNobody(program);
  if (matches.empty()) {
    program.console.complain("no machine is called \"" + name + "\"; there are:");
    list(program.console, peersByName(peers));
  } else {
    program.console.complain("\"" + name + "\" fits " + std::to_string(matches.size()) + " machines:");
    list(program.console, matches);
  }
  return ExitCode::noSuchPeer;
}

/// Waits until `name` fits a machine and every other that it may fit has had time to answer.
PeerOrCode lookUp(Program& program, const std::string& name, Seconds wait) {
  Lookup lookup(program);
  if (const ExitCode code = lookup.start(); code != ExitCode::success) return code;
  PeerMatches matches = peersMatching(lookup.peers(), name);
  if (lookup.isHosted() && matches.peers.empty()) lookup.announce();
  auto deadline = timeIn(wait);
  bool isDone = lookup.isHosted() && !matches.peers.empty();
  while (!isDone && lookup.next(deadline)) {
    const bool wasEmpty = matches.peers.empty();
    matches = peersMatching(lookup.peers(), name);
    if (wasEmpty && !matches.peers.empty()) deadline = std::min(deadline, timeIn(timeForOthers));
    isDone = matches.isWhole;
  }
  if (lookup.isInterrupted()) return ExitCode::interrupted;
  return settle(program, name, lookup.peers());
}

/// Everybody who answers in time; a code when there is none to choose from.
std::variant<std::vector<PeerView>, ExitCode> everybody(Program& program, Seconds wait) {
  Lookup lookup(program);
  if (const ExitCode code = lookup.start(); code != ExitCode::success) return code;
  if (!lookup.isHosted() || lookup.peers().empty()) {
    if (lookup.isHosted()) lookup.announce();
    program.console.note("looking for other machines ...");
    lookup.listen(wait);
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

/// What an answer means: a number of the list, else a name or a part of one.
PeerOrCode chosen(Program& program, const std::string& answer, const std::vector<PeerView>& peers) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(answer.data(), answer.data() + answer.size(), number);
  const bool isNumber = error == std::errc() && end == answer.data() + answer.size();
  if (isNumber && number >= 1 && number <= peers.size()) return addressOf(peers[number - 1]);
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
  if (const auto address = parsePeerAddress(name, program.options.port)) return *address;
  if (!name.empty()) return lookUp(program, name, wait);
  if (Console::inputIsTerminal() && program.console.showsBars()) return choose(program, wait);
  program.console.complain("whom to send to is missing: --to PEER");
  return ExitCode::usage;
}

}  // namespace vesko
