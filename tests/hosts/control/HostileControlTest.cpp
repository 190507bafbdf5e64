#include <algorithm>

#include "Platform/queues/DispatchQueue.h"
#include "hosts/common/control/ControlClient.h"
#include "hosts/common/control/ControlFolder.h"
#include "hosts/common/control/ControlMessage.h"
#include "hosts/common/control/ControlServer.h"
#include "tests/hosts/events/ListSink.h"
#include "tests/support/IsSoon.h"
#include "tests/support/LocalPeer.h"
#include "tests/support/RawPeer.h"
#include "tests/support/ResourceGuard.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

using namespace std::string_literals;

/// The control channel of a host, and programs that talk to it in bytes of their own.
class HostileControlTest : private ResourceGuard, public testing::Test {
 protected:
  static constexpr std::uint16_t port = 4644;

  HostileControlTest() {
    ::setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1);
    std::error_code error;
    server_->listen(port, error);
    EXPECT_FALSE(error) << error.message();
  }

  [[nodiscard]] static RawConnection connect() { return RawConnection(openRaw(controlPath(port), Use::connect)); }

  /// What comes after `bytes` until the host closes the connection.
  [[nodiscard]] static std::string answerTo(std::string_view bytes, bool isAll = true) {
    RawConnection connection = connect();
    connection.send(bytes);
    if (isAll) connection.endSending();
    std::string answer = connection.receiveAll();
    EXPECT_NE(connection.error(), std::errc::resource_unavailable_try_again) << "it is still open";
    return answer;
  }

  /// True when the host answers a program that behaves, which it may have to wait for others to leave.
  [[nodiscard]] bool serves() const {
    return isSoon([this] {
      const auto client = ControlClient::connect(port);
      return client && client->watch(events_, [] {});
    });
  }

  const TemporaryFolder folder_;
  const std::shared_ptr<ListSink> events_ = std::make_shared<ListSink>();
  const std::shared_ptr<EventList> announced_ = std::make_shared<EventList>();
  std::shared_ptr<ControlServer> server_ = std::make_shared<ControlServer>(
      std::make_shared<EventHub>(events_), ControlActions{[announced = announced_] { announced->add("hello"); },
                                                          [](const std::string& key) { return "picture of " + key; },
                                                          [] { return std::chrono::seconds(0); }});
};

TEST_F(HostileControlTest, WhatIsNoRequestEndsItsConnection) {
  const std::string good = controlLine({ControlRequest::Kind::announce}) + "\n";
  const std::string deep(controlRequestLimit, '[');
  const std::string objects = [] {
    std::string text;
    while (text.size() + 5 <= controlRequestLimit) text += "{\"a\":";
    return text;
  }();
  for (const std::string& line : {"\0"s,
                                  "\xFF\xFE"s,
                                  "GET / HTTP/1.1\r"s,
                                  "{"s,
                                  "]"s,
                                  "null"s,
                                  "1e999"s,
                                  "\"\\ud800\""s,
                                  deep,
                                  objects,
                                  R"({"request":null,"version":1})"s,
                                  R"({"request":{},"version":1})"s,
                                  R"({"request":"peers","version":null})"s,
                                  R"({"request":"peers","version":1e0})"s,
                                  R"({"request":"peers","version":18446744073709551617})"s,
                                  R"({"request":"peers","version":-1})"s,
                                  R"({"request":"Peers","version":1})"s,
                                  R"({"request":"","version":1})"s,
                                  R"({"request":"announce\u0000","version":1})"s,
                                  R"({"request":"announce","version":1} {})"s,
                                  R"({"request":"avatar","version":1,"key":["a"]})"s}) {
    const std::string answer = answerTo(line + "\n" + good + good, false);
    EXPECT_TRUE(answer.starts_with(R"({"event":"error",)")) << line.substr(0, 80) << ": " << answer;
    EXPECT_EQ(std::count(answer.begin(), answer.end(), '\n'), 1) << line.substr(0, 80);
  }
  EXPECT_EQ(announced_->count("hello"), 0U) << "nothing is taken from behind it";
  EXPECT_TRUE(serves());
}

TEST_F(HostileControlTest, LinesThatDoNotEnd) {
  const std::string long_(std::size_t{10} << 20U, 'x');
  for (const std::string& line : {long_, long_ + "\n", std::string(100'000, '['), "{\"request\":\"" + long_,
                                  std::string(controlRequestLimit + 1, ' ')}) {
    EXPECT_EQ(answerTo(line, false), "") << line.substr(0, 40);
  }
  const std::string request = controlLine({ControlRequest::Kind::peers});
  for (std::size_t length = 0; length <= request.size(); ++length) {
    EXPECT_EQ(answerTo(request.substr(0, length)), "") << "half a line is none";
    connect().send(request.substr(0, length));
  }
  EXPECT_EQ(answerTo(request + "\n"), controlPeersLine({}) + "\n");
  EXPECT_TRUE(serves());
}

TEST_F(HostileControlTest, OneThatDoesNotReadItsAnswersHoldsNobodyUp) {
  const std::string key(3000, 'x');
  const std::string request = controlLine({ControlRequest::Kind::avatar, key}) + "\n";
  const std::string answer = controlAvatarLine({key, "picture of " + key}) + "\n";
  constexpr std::size_t count = 200;  // more than the system holds for who does not read
  RawConnection deaf = connect();
  for (std::size_t i = 0; i < count; ++i) ASSERT_TRUE(deaf.send(request));
  EXPECT_TRUE(serves());
  EXPECT_EQ(deaf.receive(count * answer.size()).size(), count * answer.size());
}

TEST_F(HostileControlTest, ManyConnectionsThatSayLittle) {
  const std::string request = controlLine({ControlRequest::Kind::watch});
  std::vector<RawConnection> connections;
  for (std::size_t i = 0; i < 400; ++i) {
    connections.push_back(connect());
    connections.back().send(std::string_view(request).substr(0, i % request.size()));
  }
  const std::string turnedAway = connections.back().receiveAll();
  EXPECT_TRUE(turnedAway.starts_with(R"({"event":"error",)")) << turnedAway;
  connections.clear();
  EXPECT_TRUE(serves());
}

}  // namespace
}  // namespace vesko
