#include "hosts/common/doctor/Nftables.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "hosts/common/doctor/NftablesPacket.h"

namespace vesko {
namespace {

using Json = nlohmann::json;
using NftablesJson::member;
using NftablesJson::textOf;

/// All that may become of the packet at a statement, rule or chain; at least one of these.
struct Outcome {
  bool goesOn = false;   ///< with the next statement
  bool skips = false;    ///< to the next rule
  bool returns = false;  ///< to where the chain was jumped from
  bool accepts = false;
  bool drops = false;

  Outcome& operator|=(const Outcome& other) noexcept {
    goesOn = goesOn || other.goesOn;
    skips = skips || other.skips;
    returns = returns || other.returns;
    accepts = accepts || other.accepts;
    drops = drops || other.drops;
    return *this;
  }
};

constexpr Outcome passing{.goesOn = true};
constexpr Outcome doubtful{.goesOn = true, .skips = true};
constexpr Outcome anything{.goesOn = true, .skips = true, .returns = true, .accepts = true, .drops = true};

Outcome outcomeOf(Certainty match) { return {.goesOn = match != Certainty::no, .skips = match != Certainty::yes}; }

// In the order in which packets pass them.
constexpr int ingressHook = 1;
constexpr int preroutingHook = 2;
constexpr int inputHook = 3;

struct Chain {
  std::string name;   ///< with family and table
  std::string table;  ///< with the family
  int hook = 0;       ///< 0: it is only jumped to
  std::int64_t priority = 0;
  bool isClosed = false;    ///< its policy is to drop
  bool isDoubtful = false;  ///< it may not be in force for our packet
  std::vector<const Json*> rules;

  [[nodiscard]] bool isAfterTracking() const noexcept {
    constexpr std::int64_t trackingPriority = -200;  // the kernel's NF_IP_PRI_CONNTRACK
    return hook == inputHook || (hook == preroutingHook && priority > trackingPriority);
  }
};

std::string tableOf(const Json& object, const char* key) {
  return textOf(object, "family") + ' ' + textOf(object, key);
}

class Ruleset {
 public:
  explicit Ruleset(const Json& objects) {
    for (const Json& object : objects) {
      if (object.is_object() && object.size() == 1) add(object.begin().key(), *object.begin());
    }
  }

  [[nodiscard]] const Chain* chain(const std::string& name) const {
    const auto found = chains_.find(name);
    return found == chains_.end() ? nullptr : &found->second;
  }

  /// The elements of a set or map that is written out or, in `table`, named; none: there is no such set.
  [[nodiscard]] const Json* elements(const std::string& table, const Json& set) const {
    static const Json empty = Json::array();
    if (const Json& list = member(set, "set"); list.is_array()) return &list;
    if (!set.is_string() || !set.get_ref<const std::string&>().starts_with('@')) return nullptr;
    const auto found = sets_.find(table + ' ' + set.get<std::string>().substr(1));
    if (found == sets_.end()) return nullptr;
    return found->second->is_array() ? found->second : &empty;
  }

  /// The chains that packets to this machine enter, in their order.
  [[nodiscard]] std::vector<const Chain*> entries() const {
    std::vector<const Chain*> entries;
    for (const auto& [name, chain] : chains_) {
      if (chain.hook != 0) entries.push_back(&chain);
    }
    std::ranges::stable_sort(entries, {}, [](const Chain* chain) { return std::pair(chain->hook, chain->priority); });
    return entries;
  }

 private:
  void add(const std::string& kind, const Json& object) {
    const std::string table = tableOf(object, "table");
    if (kind == "table" && object.contains("flags")) doubtfulTables_.insert(tableOf(object, "name"));
    if (kind == "set" || kind == "map") sets_[table + ' ' + textOf(object, "name")] = &member(object, "elem");
    if (kind == "chain") addChain(table, object);
    if (kind == "rule") chains_[table + ' ' + textOf(object, "chain")].rules.push_back(&member(object, "expr"));
  }

  void addChain(const std::string& table, const Json& object) {
    static const std::map<std::string, int> hooks = {
        {"ingress", ingressHook}, {"prerouting", preroutingHook}, {"input", inputHook}};
    Chain& chain = chains_[table + ' ' + textOf(object, "name")];
    chain.name = table + ' ' + textOf(object, "name");
    chain.table = table;
    chain.isClosed = textOf(object, "policy") == "drop";
    const auto family = textOf(object, "family");
    const auto hook = hooks.find(textOf(object, "hook"));
    if (hook == hooks.end() || (family != "ip" && family != "inet" && family != "netdev")) return;
    chain.hook = hook->second;
    const Json& priority = member(object, "prio");
    chain.priority = priority.is_number_integer() ? priority.get<std::int64_t>() : 0;
    // Not every version of nft prints the devices of an ingress chain, or whether a table is dormant.
    chain.isDoubtful = chain.hook == ingressHook || doubtfulTables_.contains(table);
  }

  std::map<std::string, Chain> chains_;
  std::map<std::string, const Json*> sets_;
  std::set<std::string> doubtfulTables_;
};

/// Follows one packet through the rules.
class Passing {
 public:
  Passing(const Ruleset& rules, const FirewallProbe& probe) : rules_(rules), packet_(probe) {}

  FirewallVerdict verdict() {
    FirewallVerdict verdict{Passage::accepted, "", false};
    for (const Chain* chain : rules_.entries()) {
      known_.clear();
      packet_.setTracked(chain->isAfterTracking());
      const Outcome byRules = outcomeOfChain(*chain);
      const bool drops = byRules.drops || (byRules.returns && chain->isClosed);
      const bool accepts = byRules.accepts || (byRules.returns && !chain->isClosed) || chain->isDoubtful;
      if (drops && !accepts) return {Passage::dropped, chain->name, !byRules.drops};
      if (drops) verdict.passage = Passage::unclear;
    }
    return verdict;
  }

 private:
  Outcome outcomeOfChain(const Chain& chain) {
    // Until it is known, which matters only to chains that jump in a circle, anything goes.
    const auto [known, isNew] = known_.try_emplace(&chain, anything);
    if (!isNew) return known->second;
    Outcome result{.skips = true};
    for (const Json* rule : chain.rules) {
      if (!result.skips) break;
      result.skips = false;
      result |= outcomeOfRule(chain, *rule);
    }
    result.returns = result.returns || result.skips;
    result.skips = false;
    return known_[&chain] = result;
  }

  Outcome outcomeOfRule(const Chain& chain, const Json& statements) {
    Outcome result = passing;
    for (const Json& statement : statements) {
      if (!result.goesOn) break;
      result.goesOn = false;
      result |= outcomeOfStatement(chain, statement);
    }
    result.skips = result.skips || result.goesOn;
    result.goesOn = false;
    return result;
  }

  Outcome outcomeOfStatement(const Chain& chain, const Json& statement) {
    if (!statement.is_object() || statement.size() != 1) return anything;
    const std::string& kind = statement.begin().key();
    const Json& value = *statement.begin();
    if (kind == "match") return outcomeOf(matches(chain, value));
    if (kind == "vmap") return outcomeOfMap(chain, value);
    if (kind == "jump" || kind == "goto") return outcomeOfJump(chain, value, kind == "goto");
    if (kind == "mangle") return member(member(value, "key"), "payload").is_null() ? passing : anything;
    if (kind == "xt") return outcomeOfExtension(value);
    if (kind == "set" || kind == "map") return member(value, "stmt").is_null() ? passing : doubtful;
    static const std::map<std::string, Outcome> others = {{"accept", {.accepts = true}},
                                                          {"drop", {.drops = true}},
                                                          {"reject", {.drops = true}},
                                                          {"return", {.returns = true}},
                                                          {"continue", passing},
                                                          {"counter", passing},
                                                          {"log", passing},
                                                          {"comment", passing},
                                                          {"last", passing},
                                                          {"limit", doubtful},
                                                          {"quota", doubtful},
                                                          {"ct count", doubtful}};
    const auto found = others.find(kind);
    return found == others.end() ? anything : found->second;
  }

  Certainty matches(const Chain& chain, const Json& match) const {
    const PacketField field = packet_.field(member(match, "left"));
    if (field.kind == PacketField::Kind::missing) return Certainty::no;
    const Json& right = member(match, "right");
    const std::string comparison = textOf(match, "op");
    const bool isNegated = comparison == "!=";
    const Json* elements = rules_.elements(chain.table, right);
    const Certainty isIt =
        elements != nullptr ? field.isOneOf(*elements) : field.compares(isNegated ? "==" : comparison, right);
    if (!isNegated || isIt == Certainty::perhaps) return isIt;
    return isIt == Certainty::yes ? Certainty::no : Certainty::yes;
  }

  Outcome outcomeOfMap(const Chain& chain, const Json& map) {
    const Json* elements = rules_.elements(chain.table, member(map, "data"));
    if (elements == nullptr) return anything;
    const PacketField field = packet_.field(member(map, "key"));
    Outcome result;
    for (const Json& element : *elements) {
      if (!element.is_array() || element.size() != 2) return anything;
      const Certainty isIt = field.equals(element[0]);
      if (isIt != Certainty::no) result |= outcomeOfStatement(chain, element[1]);
      if (isIt == Certainty::yes) return result;
    }
    result.skips = true;
    return result;
  }

  Outcome outcomeOfJump(const Chain& from, const Json& jump, bool isForGood) {
    const Chain* target = rules_.chain(from.table + ' ' + textOf(jump, "target"));
    if (target == nullptr) return anything;
    Outcome result = outcomeOfChain(*target);
    if (!isForGood) result.skips = std::exchange(result.returns, false);
    return result;
  }

  /// What iptables left in its own form, of which the list has no more than the name.
  static Outcome outcomeOfExtension(const Json& extension) {
    const std::string name = textOf(extension, "name");
    if (name == "comment" || name == "LOG") return passing;
    if (name == "REJECT") return {.drops = true};
    return textOf(extension, "type") == "match" ? doubtful : anything;
  }

  const Ruleset& rules_;
  NftablesPacket packet_;
  std::map<const Chain*, Outcome> known_;
};

}  // namespace

std::optional<std::vector<FirewallVerdict>> judgeNftables(std::string_view ruleset,
                                                          const std::vector<FirewallProbe>& probes) {
  const Json list = Json::parse(ruleset, nullptr, false);
  const Json& objects = member(list, "nftables");
  if (!objects.is_array()) return std::nullopt;
  const Ruleset rules(objects);
  std::vector<FirewallVerdict> verdicts;
  verdicts.reserve(probes.size());
  for (const auto& probe : probes) verdicts.push_back(Passing(rules, probe).verdict());
  return verdicts;
}

}  // namespace vesko
