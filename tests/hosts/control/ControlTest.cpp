#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/LocalSocket.h"
#include "hosts/common/control/ControlClient.h"
#include "hosts/common/control/ControlFolder.h"
#include "hosts/common/control/ControlMessage.h"
#include "hosts/common/control/ControlServer.h"
#include "hosts/common/events/EventJson.h"
#include "tests/hosts/events/ListSink.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

PeerView peer(const std::string& key) { return {key, "192.0.2.7", 4644, "Signature", "", {}}; }

TEST(ControlMessage, TakesRequestsOfItsVersionAndNothingElse) {
  using enum ControlRequest::Kind;
  for (const auto& request :
       {ControlRequest{peers}, ControlRequest{watch}, ControlRequest{announce}, ControlRequest{avatar, "10.0.0.2"}}) {
    EXPECT_EQ(parseControlRequest(controlLine(request)), request);
  }
  EXPECT_EQ(parseControlRequest(R"({"version":1,"request":"peers","later":[{}]})"), ControlRequest{peers});
  for (const char* line :
       {"", "{", "null", "[]", "7", "\"peers\"", "{}", R"({"request":"peers"})", R"({"request":"peers","version":2})",
        R"({"request":"peers","version":"1"})", R"({"request":"peers","version":1.0})", R"({"request":1,"version":1})",
        R"({"request":"avatar","version":1})", R"({"request":"avatar","version":1,"key":1})",
        R"({"request":"quit","version":1})", R"({"request":["peers"],"version":1})",
        "{\"request\":\"\xff\",\"version\":1}"}) {
    EXPECT_EQ(parseControlRequest(line), std::nullopt) << line;
  }
  EXPECT_EQ(parseControlRequest(std::string(controlRequestLimit, '[')), std::nullopt);
}

TEST(ControlMessage, ReadsTheAnswersItWrites) {
  const ControlPeers peers{{peer("a"), peer("b")}, std::chrono::milliseconds(1500)};
  EXPECT_EQ(parseControlPeers(controlPeersLine(peers)), peers);
  EXPECT_EQ(parseControlPeers(controlPeersLine({})), ControlPeers());
  EXPECT_EQ(parseControlPeers(R"({"event":"peers","version":1,"peers":[]})"), ControlPeers()) << "as if just started";
  const ControlAvatar avatar{"a", "data:"};
  EXPECT_EQ(parseControlAvatar(controlAvatarLine(avatar)), avatar);
  for (const std::string& line : std::vector<std::string>{
           controlAnnouncedLine(), controlErrorLine("\xff"), "[]", "{", R"({"event":"peers","version":1})",
           R"({"event":"peers","version":1,"peers":[{"key":"a"}]})", R"({"event":"peers","version":2,"peers":[]})",
           R"({"event":"peers","version":1,"heardFor":-1,"peers":[]})",
           R"({"event":"peers","version":1,"heardFor":"1","peers":[]})",
           R"({"event":"avatar","version":2,"key":"a","avatar":""})", R"({"event":"avatar","version":1,"avatar":""})",
           R"({"event":"avatar","version":1,"key":"a"})"}) {
    EXPECT_EQ(parseControlPeers(line), std::nullopt) << line;
    EXPECT_EQ(parseControlAvatar(line), std::nullopt) << line;
  }
}

TEST(ControlFolder, IsTheUsersOwn) {
  const std::string own = "vesko-" + std::to_string(::geteuid());
  const struct {
    const char* runtime;
    const char* temporary;
    std::string folder;
  } cases[] = {{"/run/user/1", "/t", "/run/user/1/vesko"},
               {nullptr, "/t", "/t/" + own},
               {"", "", "/tmp/" + own},
               {"relative", "relative", "/tmp/" + own},
               {nullptr, nullptr, "/tmp/" + own}};
  const auto set = [](const char* name, const char* value) {
    value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
  };
  for (const auto& [runtime, temporary, folder] : cases) {
    set("XDG_RUNTIME_DIR", runtime);
    set("TMPDIR", temporary);
    EXPECT_EQ(controlFolder(), folder);
    EXPECT_EQ(controlPath(4644), folder + "/4644.sock");
  }
}

class ControlTest : public testing::Test {
 protected:
  static constexpr std::uint16_t port = 4644;

  ControlTest() { ::setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1); }

  void listen() {
    std::error_code error;
    server_->listen(port, error);
    ASSERT_FALSE(error) << error.message();
  }

  /// A connection that lists what it is told.
  [[nodiscard]] std::shared_ptr<LocalConnection> connect(const std::shared_ptr<EventList>& list) const {
    std::error_code error;
    auto connection = LocalConnection::connect(controlPath(port), queue_, error);
    EXPECT_FALSE(error) << error.message();
    connection->start(
        LocalConnection::maximumLineLength, [list](const std::string& line) { list->add(line); },
        [list] { list->add("end"); });
    return connection;
  }

  const std::string nobody_ = controlPeersLine({{}, std::chrono::seconds(7)});
  const TemporaryFolder folder_;
  const std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::serial("test");
  const std::shared_ptr<ListSink> events_ = std::make_shared<ListSink>();
  const std::shared_ptr<EventList> announced_ = std::make_shared<EventList>();
  const std::shared_ptr<EventHub> hub_ = std::make_shared<EventHub>(events_);
  std::shared_ptr<ControlServer> server_ =
      std::make_shared<ControlServer>(hub_, ControlActions{[announced = announced_] { announced->add("hello"); },
                                                           [](const std::string& key) { return "picture of " + key; },
                                                           [] { return std::chrono::seconds(7); }});
};

TEST_F(ControlTest, AClientHearsWhoIsThereAndWhatChanges) {
  listen();
  hub_->publish(PeerAppearedEvent{peer("a")});
  hub_->publish(PeerAppearedEvent{peer("b")});
  const auto client = ControlClient::connect(port);
  ASSERT_NE(client, nullptr);
  const auto changes = std::make_shared<ListSink>();
  const auto peers = client->watch(changes, [changes] { changes->add("end"); });
  EXPECT_EQ(peers, (ControlPeers{{peer("a"), peer("b")}, std::chrono::seconds(7)}));

  client->announce();
  EXPECT_TRUE(announced_->waitFor("hello"));
  const std::vector<Event> expected{PeerAppearedEvent{peer("c")}, PeerUpdatedEvent{peer("a")},
                                    PeerDisappearedEvent{peer("b")}};
  for (const Event& event : expected) {
    hub_->publish(event);
    hub_->publish(TextReceivedEvent{1, "private"});
  }
  ASSERT_TRUE(changes->waitFor(jsonLine(expected.back())));
  server_.reset();
  ASSERT_TRUE(changes->waitFor("end"));
  EXPECT_EQ(changes->take(),
            (std::vector<std::string>{jsonLine(expected[0]), jsonLine(expected[1]), jsonLine(expected[2]), "end"}));
  EXPECT_EQ(ControlClient::connect(port), nullptr);
  EXPECT_EQ(events_->all().size(), 8U);
}

TEST_F(ControlTest, ListsTheHostsThatRun) {
  EXPECT_EQ(ControlClient::runningPorts(), std::vector<std::uint16_t>());
  listen();
  std::error_code error;
  const auto second = std::make_shared<ControlServer>(hub_, ControlActions());
  second->listen(port, error);
  EXPECT_EQ(error, std::errc::address_in_use);
  second->listen(80, error);
  EXPECT_FALSE(error) << error.message();
  for (const char* name : {"7.sock", "x.sock", ".sock", "080.sock", "70000.sock", "4644.sock.new", "4644"}) {
    folder_.write(std::string("vesko/") + name, "");
  }
  EXPECT_EQ(ControlClient::runningPorts(), (std::vector<std::uint16_t>{80, port}));
}

TEST_F(ControlTest, TurnsAwayWhatIsNoRequest) {
  listen();
  const struct {
    std::vector<std::string> lines;
    std::vector<std::string> beginnings;
  } cases[] = {
      {{"{}", controlLine({ControlRequest::Kind::peers})}, {R"({"event":"error",)", "end"}},
      {{std::string(controlRequestLimit, 'x')}, {R"({"event":"error",)", "end"}},
      {{std::string(controlRequestLimit + 1, 'x')}, {"end"}},
      {{controlLine({ControlRequest::Kind::watch}), controlLine({ControlRequest::Kind::peers}),
        controlLine({ControlRequest::Kind::watch})},
       {nobody_, nobody_, R"({"event":"error",)", "end"}},
  };
  for (const auto& [lines, beginnings] : cases) {
    const auto answers = std::make_shared<EventList>();
    const auto connection = connect(answers);
    for (const std::string& line : lines) connection->send(line);
    ASSERT_TRUE(answers->waitFor("end"));
    const auto all = answers->all();
    ASSERT_EQ(all.size(), beginnings.size());
    for (std::size_t i = 0; i < all.size(); ++i) EXPECT_TRUE(all[i].starts_with(beginnings[i])) << all[i];
  }
}

TEST_F(ControlTest, ServesSoManyAtOnceAndOthersWhenTheyAreGone) {
  listen();
  std::vector<std::shared_ptr<LocalConnection>> connections;
  const auto isServed = [&] {
    const auto answers = std::make_shared<EventList>();
    connections.push_back(connect(answers));
    connections.back()->send(controlLine({ControlRequest::Kind::peers}));
    EXPECT_TRUE(answers->waitFor("{"));
    return answers->all().front() == nobody_;
  };
  for (std::size_t i = 0; i < ControlServer::maximumConnections; ++i) ASSERT_TRUE(isServed()) << i;
  EXPECT_FALSE(isServed());
  connections.clear();
  bool isServedAgain = false;
  // The server hears of each end in its own time.
  for (int i = 0; i < 1000 && !isServedAgain; ++i) isServedAgain = isServed();
  EXPECT_TRUE(isServedAgain);
}

TEST_F(ControlTest, AHostThatTalksNonsenseIsNone) {
  std::shared_ptr<LocalConnection> accepted;
  std::string answer;
  std::error_code error;
  const auto listener = LocalListener::listen(
      controlPath(port), queue_,
      [&](std::shared_ptr<LocalConnection> connection) {
        accepted = std::move(connection);
        if (!answer.empty()) accepted->send(answer);
        accepted->closeAfterSending();
      },
      error);
  ASSERT_FALSE(error) << error.message();
  for (const std::string& text : {std::string(), std::string("{"), controlErrorLine("no")}) {
    answer = text;
    const auto client = ControlClient::connect(port);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->watch(events_, [this] { events_->add("end"); }), std::nullopt);
  }
  EXPECT_EQ(events_->all(), std::vector<std::string>());
}

}  // namespace
}  // namespace vesko
