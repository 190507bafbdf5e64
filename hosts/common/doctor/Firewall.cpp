#include "hosts/common/doctor/Firewall.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <sstream>

#include "Platform/files/FileManager.h"
#include "Platform/process/Command.h"
#include "Platform/user/Identity.h"
#include "hosts/common/session/NumberRange.h"

namespace vesko {
namespace {

/// A firewall's program answers within a second; one that does not has something wrong that is not ours to wait for.
constexpr std::chrono::seconds patience{5};

/// What a program prints, without the line's end; none when it fails.
std::optional<std::string> answerOf(const std::vector<std::string>& command) {
  std::error_code error;
  CommandResult result = runCommand(command, patience, error);
  if (error || result.exitCode != 0) return std::nullopt;
  if (result.output.ends_with('\n')) result.output.pop_back();
  return std::move(result.output);
}

void readNftables(FirewallFacts& facts) {
  std::error_code error;
  CommandResult result = runCommand({"nft", "-j", "list", "ruleset"}, patience, error);
  if (error == std::errc::no_such_file_or_directory) return;
  const bool isGranted = !error && result.exitCode == 0;
  facts.nftables = isGranted ? FirewallFacts::Access::granted : FirewallFacts::Access::refused;
  if (isGranted) facts.ruleset = std::move(result.output);
}

void readFirewalld(FirewallFacts& facts, const std::vector<std::string>& interfaces) {
  facts.isFirewalldRunning = answerOf({"firewall-cmd", "--state"}).has_value();
  if (!facts.isFirewalldRunning) return;
  for (const auto& interface : interfaces) {
    auto zone = answerOf({"firewall-cmd", "--get-zone-of-interface=" + interface});
    if (!zone) zone = answerOf({"firewall-cmd", "--get-default-zone"});
    const auto ports = zone ? answerOf({"firewall-cmd", "--zone=" + *zone, "--list-ports"}) : std::nullopt;
    if (ports) facts.zones.push_back({interface, *zone, *ports});
  }
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::istringstream stream{std::string(text)};
  std::vector<std::string> parts;
  for (std::string part; std::getline(stream, part, separator);) {
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isAll = error == std::errc() && end == text.data() + text.size();
  return isAll ? std::optional(number) : std::nullopt;
}

/// "4644" or, with ':' between, "4644:4650".
bool isWithin(std::uint16_t port, std::string_view range, char between) {
  const auto dash = range.find(between);
  const auto first = numberIn<std::uint16_t>(range.substr(0, dash));
  const auto last = dash == std::string_view::npos ? first : numberIn<std::uint16_t>(range.substr(dash + 1));
  return first && last && *first <= port && port <= *last;
}

bool includesSource(std::string_view source, const FirewallProbe& probe, bool& isCertain) {
  const auto range = parseNetwork(source);
  const auto network = networkRange(probe.interface);
  isCertain = range && network && (range->contains(*network) || !range->touches(*network));
  return !isCertain || range->contains(*network);
}

struct UfwRule {
  bool fits = false;
  bool isCertain = true;  ///< that it fits, or not
  bool allows = false;
};

/// `tuple` is a rule as ufw notes it: action, protocol, port, destination, source port, source, direction and
/// interface, perhaps with the names of applications before the last. None when it is anything else.
std::optional<UfwRule> readUfwRule(std::string_view tuple, const FirewallProbe& probe) {
  auto words = split(tuple, ' ');
  if (!words.empty() && words.back().starts_with("comment=")) words.pop_back();
  if (words.size() < 7) return std::nullopt;
  if (words[0].starts_with("route:")) return UfwRule{};
  const std::string& way = words.back();
  const bool isIn = way == "in" || way == "in_" + probe.interface.name;
  const auto ports = split(words[2], ',');
  const bool fitsPort = words[2] == "any" ||
                        std::ranges::any_of(ports, [&](const auto& range) { return isWithin(probe.port, range, ':'); });
  const bool fitsProtocol = words[1] == "any" || words[1] == (probe.isUdp ? "udp" : "tcp");
  UfwRule rule;
  const bool fitsSource = includesSource(words[5], probe, rule.isCertain);
  rule.fits = isIn && fitsPort && fitsProtocol && fitsSource;
  rule.isCertain = rule.isCertain && words[3] == "0.0.0.0/0" && words[4] == "any";
  rule.allows = words[0].starts_with("allow") || words[0].starts_with("limit");
  return rule;
}

}  // namespace

bool FirewallFacts::isUfwActive() const { return Identity::assignedValue(ufwSettings, "ENABLED") == "yes"; }

FirewallFacts readFirewallFacts(const std::vector<std::string>& interfaces) {
  FirewallFacts facts;
  readNftables(facts);
  facts.hasLegacyRules =
      FileManager::contentsAtPath("/proc/net/ip_tables_names").value_or("").find("filter") != std::string::npos;
  facts.ufwSettings = FileManager::contentsAtPath("/etc/ufw/ufw.conf").value_or("");
  facts.ufwDefaults = FileManager::contentsAtPath("/etc/default/ufw").value_or("");
  facts.ufwRules = FileManager::contentsAtPath("/etc/ufw/user.rules");
  readFirewalld(facts, interfaces);
  return facts;
}

Passage judgeUfw(std::string_view rules, std::string_view defaults, const FirewallProbe& probe) {
  constexpr std::string_view mark = "### tuple ### ";
  bool mayAccept = false;
  bool mayDrop = false;
  const auto note = [&](bool accepts) { (accepts ? mayAccept : mayDrop) = true; };
  bool isDecided = false;
  for (const auto& line : split(rules, '\n')) {
    if (isDecided || !line.starts_with(mark)) continue;
    const auto rule = readUfwRule(std::string_view(line).substr(mark.size()), probe);
    if (!rule) mayAccept = mayDrop = true;
    if (rule && rule->fits) note(rule->allows);
    isDecided = rule && rule->fits && rule->isCertain;
  }
  if (!isDecided) note(Identity::assignedValue(defaults, "DEFAULT_INPUT_POLICY") == "ACCEPT");
  if (mayAccept && mayDrop) return Passage::unclear;
  return mayAccept ? Passage::accepted : Passage::dropped;
}

bool includesPort(std::string_view ports, const FirewallProbe& probe) {
  const std::string_view protocol = probe.isUdp ? "/udp" : "/tcp";
  return std::ranges::any_of(split(ports, ' '), [&](const std::string& entry) {
    return entry.ends_with(protocol) &&
           isWithin(probe.port, std::string_view(entry).substr(0, entry.size() - protocol.size()), '-');
  });
}

}  // namespace vesko
