#include "Platform/network/PortHolders.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

#include "Platform/files/FileManager.h"
#include "Platform/text/Numbers.h"
#include "Platform/user/Account.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;

/// The columns of a table up to the inode.
using Columns = std::array<std::string, 10>;

/// "address:port", both in hexadecimal.
bool holdsPort(std::string_view local, std::uint16_t port) {
  const auto colon = local.find(':');
  if (colon == std::string_view::npos || wholeNumber<std::uint16_t>(local.substr(colon + 1), 16) != port) return false;
  constexpr std::size_t shortAddress = 8;
  const std::string_view address = local.substr(0, colon);
  const bool isEverything = address.find_first_not_of('0') == std::string_view::npos;
  // Words are in the machine's byte order.
  const bool isMapped =
      address.starts_with("0000000000000000FFFF0000") || address.starts_with("00000000000000000000FFFF");
  return address.size() == shortAddress || isEverything || isMapped;
}

std::string contentsOf(const std::string& path) { return FileManager::contentsAtPath(path).value_or(""); }

std::string nameOfUser(std::uint32_t user) {
  std::error_code unknown;
  const auto account = accountOf(user, unknown);
  return account ? account->name : std::to_string(user);
}

/// Processes and their descriptors come and go meanwhile; those that have gone hold nothing.
bool hasOpen(const fs::path& process, const std::string& socket) {
  std::error_code error;
  for (fs::directory_iterator at(process / "fd", error), end; !error && at != end; at.increment(error)) {
    std::error_code gone;
    if (fs::read_symlink(at->path(), gone) == socket) return true;
  }
  return false;
}

void findProcess(std::uint64_t inode, PortHolder& holder) {
  const std::string socket = "socket:[" + std::to_string(inode) + ']';
  std::error_code error;
  for (fs::directory_iterator at("/proc", error), end; !error && at != end; at.increment(error)) {
    const auto process = wholeNumber<int>(at->path().filename().native());
    if (!process || !hasOpen(at->path(), socket)) continue;
    holder.process = *process;
    holder.processName = contentsOf(at->path() / "comm");
    if (holder.processName.ends_with('\n')) holder.processName.pop_back();
    return;
  }
}

}  // namespace

std::vector<PortHolders::SocketEntry> PortHolders::entriesIn(std::string_view table, PortProtocol protocol,
                                                             std::uint16_t port) {
  constexpr std::string_view listening = "0A";
  std::istringstream lines{std::string(table)};
  std::vector<SocketEntry> entries;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    Columns columns;
    for (auto& column : columns) words >> column;
    const auto& [slot, local, remote, state, queues, timer, retries, owner, timeout, number] = columns;
    const auto user = wholeNumber<std::uint32_t>(owner);
    const auto inode = wholeNumber<std::uint64_t>(number);
    if (!user || !inode || !holdsPort(local, port)) continue;
    if (protocol == PortProtocol::udp || state == listening) entries.push_back({*user, *inode});
  }
  return entries;
}

std::vector<PortHolder> PortHolders::of(PortProtocol protocol, std::uint16_t port) {
  const std::string table = protocol == PortProtocol::udp ? "/proc/net/udp" : "/proc/net/tcp";
  std::vector<PortHolder> holders;
  for (const auto& entry : entriesIn(contentsOf(table) + contentsOf(table + '6'), protocol, port)) {
    const bool isOurs = entry.user == userId() || userId() == 0;
    PortHolder holder{nameOfUser(entry.user), isOurs, 0, ""};
    findProcess(entry.inode, holder);
    if (std::ranges::find(holders, holder) == holders.end()) holders.push_back(std::move(holder));
  }
  return holders;
}

}  // namespace vesko
