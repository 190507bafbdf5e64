#include <fcntl.h>
#include <sys/stat.h>

#include "Platform/FileDescriptor.h"
#include "tests/hosts/CliFixture.h"
#include "tests/support/RawDatagrams.h"

namespace vesko {
namespace {

/// A receiver whose output is read when the test wants it.
class CliFloodTest : public CliTest {
 protected:
  /// Starts it; back when it listens.
  void startUnread() {
    const std::string pipe = folder_.path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    port_ = RawListener(false).port();
    auto setup = setupFor({"receive", "--json", "--dir", folder_.makeFolder("in"), "--port", std::to_string(port_)});
    setup.arguments.insert(setup.arguments.begin(), {"/bin/sh", "-c", "exec \"$@\" > \"$0\"", pipe});
    receiver_.emplace(setup);
    output_ = FileDescriptor(::open(pipe.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(nextLine().starts_with("{\"event\":\"ready\""));
  }

  /// Back when the receiver has handled it: it has answered.
  void sayHello(const std::string& name) {
    const auto low = static_cast<char>(peer_.port() & 0xFFU);
    const auto high = static_cast<char>(peer_.port() >> 8U);
    peer_.send(std::string{'\4', low, high} + name, port_);
    ASSERT_EQ(peer_.receive().substr(0, 1), "\5");
  }

  [[nodiscard]] std::string nextLine() {
    std::size_t end = read_.find('\n');
    while (end == std::string::npos) {
      char buffer[65'536];
      const ssize_t count = ::read(output_.get(), buffer, sizeof buffer);
      if (count <= 0) return "no line: " + read_;
      read_.append(buffer, static_cast<std::size_t>(count));
      end = read_.find('\n');
    }
    std::string line = read_.substr(0, end);
    read_.erase(0, end + 1);
    return line;
  }

  std::optional<Process> receiver_;
  FileDescriptor output_;
  std::string read_;
  RawDatagrams peer_;
};

TEST_F(CliFloodTest, WhatNobodyReadsDoesNotPileUp) {
  startUnread();
  const std::string name(4096, 'x');
  // More than a pipe holds, and fewer than are answered within a second.
  for (int i = 0; i < 600; ++i) sayHello(name);
  for (int i = 0; i < 300; ++i) {
    peer_.send("\3", port_);
    sayHello(name);
  }
  sayHello("last");
  std::map<std::string, int> lines;
  for (std::string line; line.find("\"last\"") == std::string::npos;) {
    line = nextLine();
    ASSERT_TRUE(line.starts_with("{\"event\":\"peer")) << line;
    ++lines[nlohmann::json::parse(line)["event"]];
  }
  EXPECT_EQ(lines["peerAppeared"], lines["peerDisappeared"] + 1) << "whoever reads still knows who is there";
  EXPECT_LT(lines["peerUpdated"], 60);
  EXPECT_LT(lines["peerAppeared"], 60);
}

}  // namespace
}  // namespace vesko
