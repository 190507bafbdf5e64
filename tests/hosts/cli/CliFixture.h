#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
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

  struct Result {
    std::optional<int> code;
    std::string output;
    std::string errors;
  };

  /// Receivers announce themselves, but not to the network that the tests happen to run in.
  static void SetUpTestSuite() {
    if (!enterOwnNetwork())
      std::cerr << "no network of its own for this test; what it announces reaches the real one\n";
  }

  [[nodiscard]] Process::Setup setupFor(Arguments arguments) const {
    arguments.insert(arguments.begin(), VESKO_PROGRAM);
    return {std::move(arguments), "", {"NO_COLOR=1", "XDG_RUNTIME_DIR=" + runtime_.path()}, {}};
  }

  static Result resultOf(Process& process) {
    const auto code = process.wait();
    return {code, process.output(), process.errors()};
  }

  [[nodiscard]] Result run(Arguments arguments, std::string input = "") const {
    auto setup = setupFor(std::move(arguments));
    setup.input = std::move(input);
    Process process(setup);
    return resultOf(process);
  }

  /// "127.0.0.1:PORT"
  [[nodiscard]] static std::string addressOf(std::uint16_t port) { return "127.0.0.1:" + std::to_string(port); }

  /// A receiver into the folder "in" that listens by the time of the return.
  std::unique_ptr<Process> startReceiver(const Arguments& more = {}) {
    for (int attempt = 0; attempt < 5; ++attempt) {
      // Free when it was asked for; another program may be faster.
      port_ = RawListener(false).port();
      Arguments arguments{"receive", "--dir", folder_.makeFolder("in"), "--port", std::to_string(port_)};
      arguments.insert(arguments.end(), more.begin(), more.end());
      auto receiver = std::make_unique<Process>(setupFor(arguments));
      const bool isJson = std::find(more.begin(), more.end(), "--json") != more.end();
      if (isJson ? receiver->waitForOutput("\"ready\"") : receiver->waitForErrors("listening on")) return receiver;
    }
    throw std::runtime_error("no receiver");
  }

  [[nodiscard]] std::string peer() const { return addressOf(port_); }

  /// A file that takes long to send and no room on the disk.
  std::string makeLargeFile(std::string_view name) const {
    std::string path = folder_.write(name, "");
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
