#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Namespaces.h"
#include "tests/support/Process.h"
#include "tests/support/RawPeer.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {

/// Runs the program itself, on ports of its own.
class CliTest : public testing::Test {
 protected:
  using Arguments = std::vector<std::string>;

  /// Receivers announce themselves, but not to the network that the tests happen to run in.
  static void SetUpTestSuite() {
    if (!enterOwnNetwork())
      std::cerr << "no network of its own for this test; what it announces reaches the real one\n";
  }

  [[nodiscard]] static Arguments joined(Arguments some, const Arguments& more) {
    some.insert(some.end(), more.begin(), more.end());
    return some;
  }

  [[nodiscard]] Process::Setup setupFor(const Arguments& arguments) const {
    return {joined({VESKO_PROGRAM}, arguments), "", {"NO_COLOR=1", "XDG_RUNTIME_DIR=" + runtime_.path()}, {}};
  }

  /// For one run by a person, who may type.
  [[nodiscard]] Process::Setup setupAtTerminal(const Arguments& arguments, unsigned short columns = 80) const {
    auto setup = setupFor(arguments);
    setup.input.reset();
    setup.terminalColumns = columns;
    return setup;
  }

  [[nodiscard]] Process::Result run(const Arguments& arguments, const std::string& input = "") const {
    auto setup = setupFor(arguments);
    setup.input = input;
    return Process(setup).result();
  }

  /// "127.0.0.1:PORT"
  [[nodiscard]] static std::string addressOf(std::uint16_t port) { return "127.0.0.1:" + std::to_string(port); }

  /// What makes a receiver into the folder "in", on another port each time.
  Arguments receiveCommand(const Arguments& more) {
    port_ = RawListener(false).port();
    return joined({"receive", "--dir", folder_.makeFolder("in"), "--port", std::to_string(port_)}, more);
  }

  /// A receiver that listens by the time of the return.
  static std::unique_ptr<Process> started(const Process::Setup& setup) {
    auto receiver = std::make_unique<Process>(setup);
    const bool isJson = std::ranges::find(setup.arguments, "--json") != setup.arguments.end();
    EXPECT_TRUE(isJson ? receiver->waitForOutput("\"ready\"") : receiver->waitForErrors("listening on"))
        << receiver->errors();
    return receiver;
  }

  std::unique_ptr<Process> startReceiver(const Arguments& more = {}) { return started(setupFor(receiveCommand(more))); }

  [[nodiscard]] std::string peer() const { return addressOf(port_); }

  RawConnection send(const std::string& stream) const {
    auto connection = RawConnection::to(port_);
    connection.send(stream);
    return connection;
  }

  /// A file that takes long to send and no room on the disk.
  std::string makeLargeFile() const {
    std::string path = folder_.write("large", "");
    std::filesystem::resize_file(path, 256U << 20U);
    return path;
  }

  /// The events printed, one of each line.
  [[nodiscard]] static std::vector<nlohmann::json> eventsIn(const std::string& output) {
    std::vector<nlohmann::json> events;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(line.starts_with("{\"event\":")) << line;
      events.push_back(nlohmann::json::parse(line));
    }
    return events;
  }

  /// The first event of a kind; null when there is none.
  [[nodiscard]] static nlohmann::json eventIn(const std::string& output, const std::string& kind) {
    for (const auto& event : eventsIn(output)) {
      if (event["event"] == kind) return event;
    }
    return nullptr;
  }

  TemporaryFolder folder_;
  TemporaryFolder runtime_;  // where programs of one user meet
  std::uint16_t port_ = 0;
};

}  // namespace vesko
