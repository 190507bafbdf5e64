#include "hosts/common/doctor/Firewall.h"

#include <gtest/gtest.h>

namespace vesko {
namespace {

FirewallProbe probe(bool isUdp, std::uint16_t port, const char* interface = "eth0",
                    const char* address = "192.168.1.20") {
  return {isUdp, port, {interface, address, "255.255.255.0", true, true, false}};
}

/// The verdicts on UDP 4644, TCP 4644 and TCP 4645, as words.
std::string verdicts(const char* rules, const char* interface = "eth0", const char* address = "192.168.1.20") {
  const auto judged =
      judgeNftables(rules, {probe(true, 4644, interface, address), probe(false, 4644, interface, address),
                            probe(false, 4645, interface, address)});
  if (!judged) return "no list";
  std::string words;
  for (const auto& [passage, chain, isPolicy] : *judged) {
    if (!words.empty()) words += ", ";
    if (passage == Passage::accepted) words += "in";
    if (passage == Passage::unclear) words += "?";
    if (passage == Passage::dropped) words += (isPolicy ? "policy of " : "rule of ") + chain;
  }
  return words;
}

// What nft printed of rules that were in force, less handles and versions.

constexpr const char* closedRules = R"({"nftables":[
{"table":{"family":"inet","name":"filter"}},
{"set":{"family":"inet","name":"lan","table":"filter","type":"ipv4_addr","elem":[{"range":["10.0.0.1","10.0.0.9"]},
 {"prefix":{"addr":"192.168.0.0","len":16}}]}},
{"chain":{"family":"inet","table":"filter","name":"input","type":"filter","hook":"input","prio":0,"policy":"drop"}},
{"chain":{"family":"inet","table":"filter","name":"services"}},
{"rule":{"family":"inet","table":"filter","chain":"input","expr":[{"match":{"op":"==",
 "left":{"meta":{"key":"iifname"}},"right":"lo"}},{"accept":null}]}},
{"rule":{"family":"inet","table":"filter","chain":"input","expr":[{"vmap":{"key":{"ct":{"key":"state"}},
 "data":{"set":[["invalid",{"drop":null}],["established",{"accept":null}],["related",{"accept":null}]]}}}]}},
{"rule":{"family":"inet","table":"filter","chain":"input","expr":[{"match":{"op":"!=",
 "left":{"&":[{"payload":{"protocol":"tcp","field":"flags"}},["fin","syn","rst","ack"]]},"right":"syn"}},
 {"match":{"op":"in","left":{"ct":{"key":"state"}},"right":"new"}},{"drop":null}]}},
{"rule":{"family":"inet","table":"filter","chain":"input","expr":[{"match":{"op":"==",
 "left":{"meta":{"key":"iifname"}},"right":{"set":["eth0","wl*"]}}},{"match":{"op":"==",
 "left":{"payload":{"protocol":"ip","field":"saddr"}},"right":"@lan"}},{"jump":{"target":"services"}}]}},
{"rule":{"family":"inet","table":"filter","chain":"input","expr":[{"match":{"op":"==",
 "left":{"meta":{"key":"l4proto"}},"right":"udp"}},{"reject":{"type":"icmpx","expr":"port-unreachable"}}]}},
{"rule":{"family":"inet","table":"filter","chain":"services","expr":[{"match":{"op":"==",
 "left":{"payload":{"protocol":"icmp","field":"type"}},"right":"echo-request"}},{"accept":null}]}},
{"rule":{"family":"inet","table":"filter","chain":"services","expr":[{"match":{"op":"==",
 "left":{"payload":{"protocol":"tcp","field":"dport"}},"right":{"set":[22,{"range":[4000,4644]}]}}},
 {"counter":{"packets":0,"bytes":0}},{"accept":null}]}},
{"rule":{"family":"inet","table":"filter","chain":"services","expr":[{"match":{"op":"==",
 "left":{"payload":{"protocol":"udp","field":"dport"}},"right":4644}},{"limit":{"rate":3,"burst":5,"per":"second"}},
 {"accept":null}]}}]})";

constexpr const char* earlyRules = R"({"nftables":[
{"table":{"family":"ip","name":"raw"}},
{"map":{"family":"ip","name":"fate","table":"raw","type":"inet_service","map":"verdict","elem":[[80,{"accept":null}],
 [4645,{"drop":null}]]}},
{"chain":{"family":"ip","table":"raw","name":"pre","type":"filter","hook":"prerouting","prio":-300,
 "policy":"accept"}},
{"chain":{"family":"ip","table":"raw","name":"more"}},
{"rule":{"family":"ip","table":"raw","chain":"pre","expr":[{"match":{"op":"in","left":{"ct":{"key":"state"}},
 "right":"new"}},{"accept":null}]}},
{"rule":{"family":"ip","table":"raw","chain":"pre","expr":[{"match":{"op":"==","left":{"fib":{"result":"oif",
 "flags":["saddr","iif"]}},"right":false}},{"drop":null}]}},
{"rule":{"family":"ip","table":"raw","chain":"pre","expr":[{"vmap":{"key":{"payload":{"protocol":"tcp",
 "field":"dport"}},"data":"@fate"}}]}},
{"rule":{"family":"ip","table":"raw","chain":"pre","expr":[{"match":{"op":">=","left":{"payload":{"protocol":"udp",
 "field":"dport"}},"right":4644}},{"goto":{"target":"more"}}]}},
{"rule":{"family":"ip","table":"raw","chain":"pre","expr":[{"drop":null}]}},
{"rule":{"family":"ip","table":"raw","chain":"more","expr":[{"match":{"op":"==","left":{"payload":{"protocol":"ip",
 "field":"daddr"}},"right":{"prefix":{"addr":"192.168.1.0","len":24}}}},{"accept":null}]}},
{"table":{"family":"ip6","name":"x"}},
{"chain":{"family":"ip6","table":"x","name":"i","type":"filter","hook":"input","prio":0,"policy":"drop"}}]})";

constexpr const char* layeredRules = R"({"nftables":[
{"table":{"family":"ip","name":"a"}},
{"chain":{"family":"ip","table":"a","name":"i","type":"filter","hook":"input","prio":-10,"policy":"accept"}},
{"rule":{"family":"ip","table":"a","chain":"i","expr":[{"match":{"op":"==","left":{"payload":{"protocol":"udp",
 "field":"dport"}},"right":4644}},{"accept":null}]}},
{"rule":{"family":"ip","table":"a","chain":"i","expr":[{"match":{"op":"==","left":{"meta":{"key":"mark"}},"right":1}},
 {"match":{"op":"==","left":{"payload":{"protocol":"tcp","field":"dport"}},"right":4644}},{"drop":null}]}},
{"rule":{"family":"ip","table":"a","chain":"i","expr":[{"match":{"op":"==","left":{"payload":{"protocol":"ip",
 "field":"saddr"}},"right":{"prefix":{"addr":"192.168.1.128","len":25}}}},{"match":{"op":"==",
 "left":{"payload":{"protocol":"tcp","field":"dport"}},"right":4645}},{"accept":null}]}},
{"rule":{"family":"ip","table":"a","chain":"i","expr":[{"match":{"op":"==","left":{"payload":{"protocol":"tcp",
 "field":"dport"}},"right":4645}},{"reject":{"type":"icmp","expr":"port-unreachable"}}]}},
{"table":{"family":"inet","name":"b"}},
{"chain":{"family":"inet","table":"b","name":"i","type":"filter","hook":"input","prio":5,"policy":"accept"}},
{"rule":{"family":"inet","table":"b","chain":"i","expr":[{"match":{"op":"!=","left":{"payload":{"protocol":"udp",
 "field":"dport"}},"right":4644}},{"accept":null}]}},
{"rule":{"family":"inet","table":"b","chain":"i","expr":[{"match":{"op":"==","left":{"payload":{"protocol":"udp",
 "field":"sport"}},"right":67}},{"accept":null}]}},
{"rule":{"family":"inet","table":"b","chain":"i","expr":[{"match":{"op":"==","left":{"meta":{"key":"l4proto"}},
 "right":"udp"}},{"drop":null}]}}]})";

TEST(Firewall, FollowsPacketsThroughNftables) {
  EXPECT_EQ(verdicts(closedRules), "?, in, policy of inet filter input");
  EXPECT_EQ(verdicts(closedRules, "wlan0"), verdicts(closedRules));
  EXPECT_EQ(verdicts(closedRules, "eth1"),
            "rule of inet filter input, policy of inet filter input, policy of inet filter input");
  EXPECT_EQ(verdicts(closedRules, "eth0", "10.0.0.2"), "?, ?, policy of inet filter input");
  EXPECT_EQ(verdicts(earlyRules), "in, rule of ip raw pre, rule of ip raw pre");
  EXPECT_EQ(verdicts(layeredRules), "rule of inet b i, ?, ?");
  EXPECT_EQ(verdicts(layeredRules, "eth0", "192.168.2.7"), "rule of inet b i, ?, rule of ip a i");
  EXPECT_EQ(verdicts(R"({"nftables":[]})"), "in, in, in");
}

/// A closed chain with one rule of these statements.
std::string verdictsOnRule(const std::string& statements) {
  const std::string chain = R"("family":"inet","table":"t",)";
  const std::string list =
      R"({"nftables":[{"chain":{)" + chain + R"("name":"i","hook":"input","prio":0,"policy":"drop"}},{"chain":{)" +
      chain + R"("name":"c"}},{"rule":{)" + chain + R"("chain":"c","expr":[{"jump":{"target":"c"}}]}},{"rule":{)" +
      chain + R"("chain":"i","expr":)" + statements + "}}]}";
  return verdicts(list.c_str());
}

TEST(Firewall, LeavesOpenWhatItDoesNotUnderstand) {
  const char* unclear[] = {
      R"([{"queue":{"num":1}}])",
      R"([{"xt":null}])",
      R"([{"xt":{"type":"match","name":"set"}},{"accept":null}])",
      R"([{"match":{"op":"==","left":{"meta":{"key":"hour"}},"right":"12:00"}},{"accept":null}])",
      R"([{"match":{"op":"==","left":{"meta":{"key":"iifname"}},"right":"@gone"}},{"accept":null}])",
      R"([{"match":{"op":"~","left":{"payload":{"protocol":"th","field":"dport"}},"right":1}},{"accept":null}])",
      R"([{"jump":{"target":"c"}}])",
      R"([{"jump":{"target":"gone"}}])",
      R"([{"vmap":{"key":{"meta":{"key":"mark"}},"data":{"set":[[1,{"accept":null}]]}}}])",
      R"([7])",
      R"([{"vmap":[]}])",
  };
  for (const char* rule : unclear) EXPECT_EQ(verdictsOnRule(rule), "?, ?, ?") << rule;
  const std::string closed = "policy of inet t i, policy of inet t i, policy of inet t i";
  for (const char* rule : {R"([])", R"(null)", R"([{"counter":null},{"log":null}])", R"([{"return":null}])"}) {
    EXPECT_EQ(verdictsOnRule(rule), closed) << rule;
  }
  for (const char* text : {"", "[]", "{}", R"({"nftables":{}})", R"({"nftables":[)", "\xff"}) {
    EXPECT_EQ(verdicts(text), "no list");
  }
  EXPECT_EQ(verdicts(R"({"nftables":[1,{"rule":null},{"chain":[]},{"set":{"elem":3}},{},{"a":1,"b":2}]})"),
            "in, in, in");
}

TEST(Firewall, ReadsRulesOfUfw) {
  const std::pair<const char*, Passage> rules[] = {
      {"", Passage::dropped},
      {"### tuple ### allow udp 4644 0.0.0.0/0 any 0.0.0.0/0 in\n", Passage::accepted},
      {"### tuple ### allow any 4000:5000 0.0.0.0/0 any 192.168.0.0/16 in comment=61\n", Passage::accepted},
      {"### tuple ### limit_log udp 22,4644 0.0.0.0/0 any 0.0.0.0/0 Vesko - in_eth0\n", Passage::accepted},
      {"### tuple ### allow any any 0.0.0.0/0 any 192.168.1.9 in\n", Passage::unclear},
      {"### tuple ### allow any any 192.168.1.20 any 0.0.0.0/0 in\n", Passage::unclear},
      {"### tuple ### allow tcp 4644 0.0.0.0/0 any 0.0.0.0/0 in\n", Passage::dropped},
      {"### tuple ### allow udp 4644 0.0.0.0/0 any 0.0.0.0/0 out\n", Passage::dropped},
      {"### tuple ### allow udp 4644 0.0.0.0/0 any 0.0.0.0/0 in_eth1\n", Passage::dropped},
      {"### tuple ### allow udp 4644 0.0.0.0/0 any 10.0.0.0/8 in\n", Passage::dropped},
      {"### tuple ### route:allow udp 4644 0.0.0.0/0 any 0.0.0.0/0 in\n", Passage::dropped},
      {"### tuple ### deny udp 4644 0.0.0.0/0 any 0.0.0.0/0 in\n"
       "### tuple ### allow udp 4644 0.0.0.0/0 any 0.0.0.0/0 in\n",
       Passage::dropped},
      {"### tuple ### allow udp 4644:x,99999 0.0.0.0/0 any 0.0.0.0/0 in\n", Passage::dropped},
      {"### tuple ### allow udp 4644\n", Passage::unclear},
  };
  for (const auto& [text, passage] : rules) {
    EXPECT_EQ(judgeUfw(text, "DEFAULT_INPUT_POLICY=\"DROP\"\n", probe(true, 4644)), passage) << text;
  }
  EXPECT_EQ(judgeUfw("", "DEFAULT_INPUT_POLICY=\"ACCEPT\"\n", probe(true, 4644)), Passage::accepted);
}

TEST(Firewall, FindsPortsInListsOfFirewalld) {
  EXPECT_TRUE(includesPort("22/tcp 4600-4650/udp", probe(true, 4644)));
  EXPECT_TRUE(includesPort("4644/tcp", probe(false, 4644)));
  for (const char* ports : {"", "4644/tcp", "4644", "4650-4600/udp", "-/udp", "/udp", "4644-/udp"}) {
    EXPECT_FALSE(includesPort(ports, probe(true, 4644))) << ports;
  }
}

}  // namespace
}  // namespace vesko
