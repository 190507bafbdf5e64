#include "hosts/cli/PeersCommand.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "Platform/files/FileManager.h"
#include "Platform/text/Base64.h"
#include "Platform/text/DateFormatter.h"
#include "VeskoKit/Log.h"
#include "hosts/cli/Lookup.h"
#include "hosts/common/events/EventJson.h"
#include "hosts/common/session/PeerNames.h"
#include "hosts/common/text/HumanText.h"

namespace vesko {
namespace {

using Clock = std::chrono::system_clock;

/// Only the time for today, with the date for other days.
std::string timeText(Clock::time_point time, Clock::time_point now) {
  const DateFormatter day("yyyy-MM-dd");
  const bool isToday = day.stringFromDate(time) == day.stringFromDate(now);
  return DateFormatter(isToday ? "HH:mm:ss" : "yyyy-MM-dd HH:mm").stringFromDate(time);
}

struct Row {
  std::string name;
  std::string address;
  std::string avatar;
  std::string since;
};

std::string padded(const std::string& text, std::size_t columns) {
  return text + std::string(columns - std::min(columns, columnsOf(text)), ' ');
}

std::string tableOf(std::vector<Row> rows, bool hasHeader) {
  if (hasHeader) rows.insert(rows.begin(), {"NAME", "ADDRESS", "PICTURE", "SINCE"});
  constexpr std::size_t avatarColumns = 7;
  std::size_t nameColumns = 0;
  std::size_t addressColumns = 0;
  for (const auto& row : rows) {
    nameColumns = std::max(nameColumns, columnsOf(row.name));
    addressColumns = std::max(addressColumns, columnsOf(row.address));
  }
  std::string table;
  for (const auto& row : rows) {
    table += padded(row.name, nameColumns) + "  " + padded(row.address, addressColumns) + "  " +
             padded(row.avatar, avatarColumns) + "  " + row.since + '\n';
  }
  return table;
}

void printPeers(Program& program, const std::vector<PeerView>& peers) {
  if (program.options.json) return program.console.print(jsonArray(peers) + '\n');
  if (peers.empty()) {
    if (!program.options.quiet) program.console.note(Lookup::nobodyFound);
    return;
  }
  std::vector<Row> rows;
  rows.reserve(peers.size());
  const auto now = Clock::now();
  for (const auto& peer : peers) {
    const char* avatar = peer.avatar == "png" ? "yes" : "-";
    rows.push_back({Log::escaped(nameOfPeer(peer)), addressOfPeer(peer), avatar, timeText(peer.since, now)});
  }
  program.console.print(tableOf(std::move(rows), !program.options.quiet));
}

void printChange(Program& program, const Event& event) {
  if (program.options.json) return program.reporter.report(event);
  const auto print = [&](const char* what, const PeerView& peer) {
    const std::string time = DateFormatter("HH:mm:ss").stringFromDate(Clock::now());
    program.console.print(time + "  " + what + "  " + Log::escaped(describedPeer(peer)) + '\n');
  };
  std::visit(
      Overloaded{[&](const PeerAppearedEvent& appeared) { print("here", appeared.peer); },
                 [&](const PeerDisappearedEvent& disappeared) { print("gone", disappeared.peer); }, [](const auto&) {}},
      event);
}

ExitCode watch(Program& program, Lookup& lookup) {
  for (const auto& peer : peersByName(lookup.peers())) printChange(program, PeerAppearedEvent{peer});
  while (const auto event = lookup.next({})) printChange(program, *event);
  if (lookup.isInterrupted()) return ExitCode::success;
  program.console.complain(Lookup::hostGone);
  return ExitCode::unexpected;
}

/// The bytes of the PNG in a data URL; none for any other text.
std::optional<std::string> pngIn(std::string_view avatar) {
  constexpr std::string_view beginning = "data:image/png;base64,";
  if (!avatar.starts_with(beginning)) return std::nullopt;
  return base64Decoded(avatar.substr(beginning.size()));
}

/// Writes the pictures of all machines that have one.
ExitCode saveAvatars(Program& program, Lookup& lookup, const std::string& folder) {
  std::error_code error;
  FileManager::createDirectoryAtPath(folder, error);
  for (const auto& [key, peer] : lookup.peers()) {
    if (error) break;
    const auto png = peer.avatar == "png" ? pngIn(lookup.avatarOf(key)) : std::nullopt;
    if (png) FileManager::replaceFileAtPath(folder + '/' + peer.ip + ".png", *png, error);
  }
  if (!error) return ExitCode::success;
  program.console.complain("cannot write pictures to \"" + folder + "\": " + error.message());
  return ExitCode::unexpected;
}

}  // namespace

ExitCode runPeers(Program& program, const PeersOptions& options) {
  Lookup lookup(program);
  if (const ExitCode code = lookup.start(); code != ExitCode::success) return code;
  if (options.watch) return watch(program, lookup);
  lookup.listen(lookup.leftOf(options.wait));
  if (lookup.isInterrupted()) return ExitCode::interrupted;
  printPeers(program, peersByName(lookup.peers()));
  return options.avatarFolder.empty() ? ExitCode::success : saveAvatars(program, lookup, options.avatarFolder);
}

}  // namespace vesko
