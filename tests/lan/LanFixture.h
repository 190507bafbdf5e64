#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Lan.h"
#include "tests/support/Process.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {

/// A `vesko receive` on a machine of a `Lan`, heard through its events.
class LanHost {
 public:
  /// Ports of peers, by address.
  using Table = std::map<std::string, std::uint16_t>;

  explicit LanHost(const Process::Setup& setup) : process_(setup) {
    if (!process_.waitForOutput("\"ready\"")) throw std::runtime_error("not ready: " + text());
  }

  /// Waits for the event of this kind about this address, and with this port where one is given.
  [[nodiscard]] testing::AssertionResult tells(std::string_view kind, const std::string& ip, int port = 0) {
    std::string line = "{\"event\":\"" + std::string(kind) + R"(","key":")" + ip + '"';
    if (port != 0) line += R"(,"ip":")" + ip + R"(","port":)" + std::to_string(port) + ',';
    if (process_.waitForOutput(line)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << line << " is missing in\n" << text();
  }

  [[nodiscard]] testing::AssertionResult tells(const std::string& text) {
    if (process_.waitForOutput(text)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << text << " is missing in\n" << this->text();
  }

  /// The events about peers so far.
  [[nodiscard]] std::vector<nlohmann::json> events() {
    std::vector<nlohmann::json> events;
    std::istringstream lines(process_.output());
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
      auto event = nlohmann::json::parse(line);
      if (event["event"].get<std::string>().starts_with("peer")) events.push_back(std::move(event));
    }
    return events;
  }

  /// The same as "KIND ADDRESS".
  [[nodiscard]] std::vector<std::string> story() {
    std::vector<std::string> story;
    for (const auto& event : events()) {
      story.push_back(event["event"].get<std::string>() + ' ' + event["key"].get<std::string>());
    }
    return story;
  }

  /// What the events add up to; fails where they contradict each other.
  [[nodiscard]] Table table() {
    Table table;
    for (const auto& event : events()) {
      const std::string key = event["key"];
      EXPECT_EQ(table.contains(key), event["event"] != "peerAppeared") << text();
      if (event["event"] == "peerDisappeared") {
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
  [[nodiscard]] std::string text() { return process_.output() + process_.errors(); }

  Process process_;
};

/// Machines and what runs on them. Machine 9 is nobody's: the tests speak there for themselves.
class LanTest : public testing::Test {
 protected:
  using Arguments = std::vector<std::string>;

  static constexpr std::uint16_t defaultPort = 4644;
  static constexpr int stranger = 9;

  struct Result {
    std::optional<int> code;
    std::string output;
    std::string errors;
  };

  void SetUp() override {
    try {
      lan_ = std::make_unique<Lan>();
    } catch (const std::runtime_error& error) {
      GTEST_SKIP() << "network namespaces cannot be made here: " << error.what();
    }
  }

  /// The stranger and machines 1 to `count`, all in network 0.
  void makeMachines(int count) {
    for (int machine = 1; machine <= count; ++machine) addMachine(machine);
    addMachine(stranger);
  }

  void addMachine(int machine) {
    lan_->addMachine(machine);
    lan_->plug(machine, 0);
  }

  [[nodiscard]] static std::string ip(int machine, int network = 0) { return Lan::address(machine, network); }

  [[nodiscard]] static std::string signatureOf(int machine) {
    return "root at machine" + std::to_string(machine) + " [Vesko] (Macintosh)";
  }

  /// A port as datagrams hold it.
  [[nodiscard]] static std::string packed(std::uint16_t port) {
    return {static_cast<char>(port & 0xFFU), static_cast<char>(port >> 8U)};
  }

  /// The hello to all of a stranger who waits on `port`.
  [[nodiscard]] static std::string hello(std::uint16_t port) { return '\4' + packed(port) + "a stranger"; }

  [[nodiscard]] LanSocket strangerOn(std::uint16_t port = defaultPort) const { return {*lan_, stranger, port}; }

  [[nodiscard]] Process::Setup setupFor(int machine, Arguments arguments) const {
    arguments.insert(arguments.begin(), VESKO_PROGRAM);
    return lan_->setupFor(machine, std::move(arguments));
  }

  /// A host that is ready.
  [[nodiscard]] std::unique_ptr<LanHost> receive(int machine, std::uint16_t port = defaultPort) const {
    return std::make_unique<LanHost>(
        setupFor(machine, {"receive", "--json", "--port", std::to_string(port), "--dir", inboxOf(machine)}));
  }

  [[nodiscard]] std::string inboxOf(int machine) const { return folder_.makeFolder("in" + std::to_string(machine)); }

  Result run(int machine, Arguments arguments) const {
    Process process(setupFor(machine, std::move(arguments)));
    const auto code = process.wait();
    return {code, process.output(), process.errors()};
  }

  /// Has a host hear the stranger: whatever was on its way to it has arrived by the time of the return.
  [[nodiscard]] static testing::AssertionResult hasHeardAll(LanHost& host, int machine, const LanSocket& from,
                                                            std::uint16_t port = defaultPort) {
    from.send(hello(1), ip(machine), port);
    return host.tells("peerAppeared", ip(stranger), 1);
  }

  TemporaryFolder folder_;
  std::unique_ptr<Lan> lan_;
};

}  // namespace vesko
