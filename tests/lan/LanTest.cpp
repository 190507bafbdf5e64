#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "Platform/text/Base64.h"
#include "tests/support/Lan.h"
#include "tests/support/RawPeer.h"

namespace vesko {
namespace {

using Arguments = std::vector<std::string>;

/// A `vesko receive` on a machine of a `Lan`, heard through its events.
class LanHost {
 public:
  /// Ports of peers, by address.
  using Table = std::map<std::string, std::uint16_t>;

  explicit LanHost(const Process::Setup& setup) : process_(setup) {
    if (!process_.waitForOutput("\"ready\"")) throw std::runtime_error("not ready: " + process_.errors());
  }

  [[nodiscard]] testing::AssertionResult tells(const std::string& text) {
    if (process_.waitForOutput(text)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << text << " is missing in\n" << process_.output() << process_.errors();
  }

  /// Waits for the event of this kind about this address, and with this port where one is given.
  [[nodiscard]] testing::AssertionResult tells(const std::string& kind, const std::string& ip, int port = 0) {
    const auto ending = port == 0 ? "" : R"(,"ip":")" + ip + R"(","port":)" + std::to_string(port) + ',';
    return tells("{\"event\":\"" + kind + R"(","key":")" + ip + '"' + ending);
  }

  /// What the events add up to; fails where they contradict each other.
  [[nodiscard]] Table table() {
    Table table;
    std::istringstream lines(process_.output());
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
      const auto event = nlohmann::json::parse(line);
      const std::string kind = event["event"];
      if (!kind.starts_with("peer")) continue;
      const std::string key = event["key"];
      EXPECT_EQ(table.contains(key), kind != "peerAppeared") << process_.output();
      if (kind == "peerDisappeared") {
        table.erase(key);
      } else {
        EXPECT_EQ(event["ip"], key);
        table[key] = event["port"];
      }
    }
    return table;
  }

  [[nodiscard]] std::optional<int> stop() {
    process_.signal(SIGTERM);
    return process_.wait();
  }

 private:
  Process process_;
};

/// Machines and what runs on them. Machine 9 is nobody's: the tests speak there for themselves.
class LanTest : public testing::Test {
 protected:
  static constexpr std::uint16_t defaultPort = 4644;
  static constexpr int stranger = 9;

  void SetUp() override {
    try {
      lan_ = std::make_unique<Lan>();
    } catch (const std::runtime_error& error) {
      GTEST_SKIP() << "network namespaces cannot be made here: " << error.what();
    }
  }

  /// The stranger and machines 1 to `count`, all in network 0.
  void makeMachines(int count) const {
    addMachine(stranger);
    for (int machine = 1; machine <= count; ++machine) addMachine(machine);
  }

  void addMachine(int machine, int network = 0) const {
    lan_->addMachine(machine);
    lan_->plug(machine, network);
  }

  [[nodiscard]] static std::string ip(int machine, int network = 0) { return Lan::address(machine, network); }

  [[nodiscard]] Process::Setup setupFor(int machine, Arguments arguments) const {
    arguments.insert(arguments.begin(), VESKO_PROGRAM);
    return lan_->setupFor(machine, std::move(arguments));
  }

  [[nodiscard]] Arguments receiveOn(int machine, std::uint16_t port) const {
    return {"receive", "--json",
            "--port",  std::to_string(port),
            "--dir",   folder_.makeFolder("in" + std::to_string(machine))};
  }

  /// A host that is ready.
  [[nodiscard]] std::unique_ptr<LanHost> receive(int machine, std::uint16_t port = defaultPort) const {
    return std::make_unique<LanHost>(setupFor(machine, receiveOn(machine, port)));
  }

  [[nodiscard]] Process::Result run(int machine, Arguments arguments) const {
    return Process(setupFor(machine, std::move(arguments))).result();
  }

  TemporaryFolder folder_;
  std::unique_ptr<Lan> lan_;
};

TEST_F(LanTest, HostsCompleteTheirTablesOnAllPorts) {
  const struct {
    std::vector<std::uint16_t> ports;  // of the machines from 1 on, in the order in which they start
    std::vector<LanHost::Table> tables;
  } cases[] = {
      {{4644, 4644}, {{{ip(2), 4644}}, {{ip(1), 4644}}}},
      {{4644, 5000}, {{{ip(2), 5000}}, {{ip(1), 4644}}}},
      {{5000, 5000}, {{{ip(2), 5000}}, {{ip(1), 5000}}}},
      {{4644, 4644, 4644},
       {{{ip(2), 4644}, {ip(3), 4644}}, {{ip(1), 4644}, {ip(3), 4644}}, {{ip(1), 4644}, {ip(2), 4644}}}},
      // Two on different ports of their own hear of each other nowhere, only what is on the common port hears both.
      {{4644, 5000, 6000}, {{{ip(2), 5000}, {ip(3), 6000}}, {{ip(1), 4644}}, {{ip(1), 4644}}}},
      {{5000, 6000}, {{}, {}}},
  };
  makeMachines(3);
  const auto voice = lan_->socketOn(stranger, defaultPort);
  for (const auto& one : cases) {
    SCOPED_TRACE(testing::PrintToString(one.ports));
    std::vector<std::unique_ptr<LanHost>> hosts;
    for (const auto port : one.ports) hosts.push_back(receive(static_cast<int>(hosts.size()) + 1, port));
    for (std::size_t index = 0; index < hosts.size(); ++index) {
      auto expected = one.tables[index];
      for (const auto& [peer, port] : expected) EXPECT_TRUE(hosts[index]->tells("peerAppeared", peer, port));
      // Whatever was on its way has arrived once this has.
      voice.send(std::string("\4\1\0a stranger", 13), one.ports[index], ip(static_cast<int>(index) + 1));
      EXPECT_TRUE(hosts[index]->tells("peerAppeared", ip(stranger), 1));
      expected[ip(stranger)] = 1;
      EXPECT_EQ(hosts[index]->table(), expected);
    }
    EXPECT_EQ(hosts.back()->stop(), 0);
    for (const auto& [peer, port] : one.tables.back()) {
      const auto other = peer.back() - '1';
      EXPECT_TRUE(hosts[static_cast<std::size_t>(other)]->tells("peerDisappeared", ip(static_cast<int>(hosts.size()))));
    }
  }
}

TEST_F(LanTest, NetworksThatComeLaterAreGreeted) {
  makeMachines(2);
  addMachine(3, 1);
  addMachine(4);
  lan_->configure(4, "address del " + ip(4) + "/24 dev eth0\naddress add " + ip(4, 2) + "/24 dev eth0\n");
  lan_->addMachine(5);
  const auto host2 = receive(2);
  const auto host3 = receive(3);
  const auto host4 = receive(4);
  const auto late = receive(5);  // when it has no network at all
  lan_->plug(5, 0);
  EXPECT_TRUE(late->tells("peerAppeared", ip(2)));
  EXPECT_TRUE(host2->tells("peerAppeared", ip(5)));
  lan_->plug(5, 1);
  EXPECT_TRUE(late->tells("peerAppeared", ip(3, 1)));
  EXPECT_TRUE(host3->tells("peerAppeared", ip(5, 1)));
  EXPECT_TRUE(host2->tells("peerUpdated", ip(5)));
  lan_->configure(5, "address add " + ip(5, 2) + "/24 dev eth0\n");
  EXPECT_TRUE(late->tells("peerAppeared", ip(4, 2)));
  EXPECT_TRUE(host4->tells("peerAppeared", ip(5, 2)));
  // By now its own hellos, which it hears too, have come back from all networks.
  EXPECT_EQ(late->table(), (LanHost::Table{{ip(2), 4644}, {ip(3, 1), 4644}, {ip(4, 2), 4644}}));
}

TEST_F(LanTest, ReceiversAreFoundByTheirNames) {
  makeMachines(3);
  const auto host2 = receive(2);
  const auto host3 = receive(3);
  EXPECT_EQ(run(1, {"send", "--to", "machine2", "--wait", "1", folder_.write("alone", "by itself")}).code, 0);
  EXPECT_TRUE(host2->tells("/alone\"}"));
  EXPECT_EQ(folder_.read("in2/alone"), "by itself");
  EXPECT_TRUE(host2->tells("peerDisappeared", ip(1)));
  // Nobody else has a whole name, however long the wait.
  const auto text = run(1, {"text", "--to", "ROOT AT MACHINE3", "--wait", "3600", "to a whole name"});
  EXPECT_EQ(text.code, 0);
  EXPECT_TRUE(text.output.starts_with("sent a text to root at machine3 (" + ip(3) + "): ")) << text.output;
  const auto ambiguous = run(1, {"text", "--to", "machine", "--wait", "1", "x"});
  EXPECT_EQ(ambiguous.code, 3);
  for (const auto* one : {"root at machine2 (10.83.0.2)", "root at machine3 (10.83.0.3)"})
    EXPECT_NE(ambiguous.errors.find(one), std::string::npos) << ambiguous.errors;
}

TEST_F(LanTest, HostsEndUpWithEachOthersPicture) {
  makeMachines(3);
  const auto givePicture = [&](int machine, std::string_view base64) {
    std::ofstream(lan_->homeOf(machine) + "/.face", std::ios::binary) << *base64Decoded(base64);
  };
  // A PNG and a GIF of one pixel.
  givePicture(1, "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==");
  givePicture(2, "R0lGODlhAQABAIAAAAAAAP///yH5BAEAAAAALAAAAAABAAEAAAIBRAA7");
  const auto servedBy = [&](int machine) {
    std::string answer;
    lan_->inside(machine, [&] {
      auto connection = RawConnection::to(defaultPort + 1);
      connection.send("GET /virno/avatar HTTP/1.0\r\n\r\n");
      answer = connection.receiveAll();
    });
    return answer.substr(answer.find("\r\n\r\n") + 4);
  };
  const auto host1 = receive(1);
  const auto host2 = receive(2);
  EXPECT_TRUE(host1->tells(R"("avatar":"png")"));
  EXPECT_TRUE(host2->tells(R"("avatar":"png")"));
  // One asks its host, the other looks around by itself.
  const std::map<int, std::vector<int>> known{{1, {2}}, {3, {1, 2}}};
  for (const auto& [machine, others] : known) {
    const auto pictures = "pictures" + std::to_string(machine);
    const auto result = run(machine, {"peers", "--save-avatars", folder_.path(pictures)});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(folder_.entries(pictures).size(), others.size());
    for (const int other : others) EXPECT_EQ(folder_.read(pictures + '/' + ip(other) + ".png"), servedBy(other));
  }
  EXPECT_TRUE(servedBy(2).starts_with("\x89PNG"));
}

}  // namespace
}  // namespace vesko
