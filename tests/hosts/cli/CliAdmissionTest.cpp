#include "tests/hosts/cli/CliFixture.h"
#include "tests/support/StreamBytes.h"

namespace vesko {
namespace {

namespace Bytes = StreamBytes;
using Strings = std::vector<std::string>;

using CliAdmissionTest = CliTest;

TEST_F(CliAdmissionTest, OnlyAllowedAddressesGetIn) {
  const auto closed = startReceiver({"--json", "--allow", "192.0.2.7", "--allow", "10.0.0.0/8"});
  for (int i = 0; i < 3; ++i) {
    auto stranger = RawConnection::to(port_);
    const bool isSent = stranger.send(Bytes::folderWithFile());
    EXPECT_EQ(stranger.receiveAll(), "");
    EXPECT_TRUE(!isSent || stranger.error() == std::errc::connection_reset)
        << "the sender must not take it for success";
  }
  closed->signal(SIGINT);
  const auto events = eventsIn(closed->result().output);
  EXPECT_EQ(events.back(), (nlohmann::json{{"event", "refused"}, {"ip", "127.0.0.1"}}));
  EXPECT_EQ(events.size(), 2U) << "ready, and one notice for each stranger";
  EXPECT_EQ(folder_.entries("in"), Strings());

  const auto open = startReceiver({"--allow", "192.0.2.7", "--allow", "127.0.0.0/30", "--once"});
  send(Bytes::folderWithFile());
  EXPECT_EQ(open->wait(), 0);
  EXPECT_EQ(folder_.entries("in"), Strings{"A"});
}

TEST_F(CliAdmissionTest, LargerTransfersAreRefused) {
  const auto receiver = startReceiver({"--json", "--max-size", "1k"});
  const std::string half(500, 'x');
  const std::pair<std::string, std::string> cases[] = {
      // What is sent, and the element that is too much.
      {Bytes::metadata(1, 1001), ""},
      {Bytes::metadata(1, 0) + Bytes::header("much", 1001), "much"},
      {Bytes::metadata(3, 0) + Bytes::file("a", half) + Bytes::file("b", half) + Bytes::header("c", 1), "c"},
      {Bytes::metadata(3, 0) + Bytes::file("a", half) + Bytes::header("b", ~std::uint64_t{0} - 1), "b"},
      {Bytes::metadata(1, 0) + Bytes::header(Bytes::textName, 1001), ""},
  };
  int transfer = 0;
  for (const auto& [stream, element] : cases) {
    SCOPED_TRACE(++transfer);
    EXPECT_EQ(send(stream).receiveAll(), "");
    ASSERT_TRUE(receiver->waitForOutput("\"failed\",\"transfer\":" + std::to_string(transfer)));
    const auto failure = eventsIn(receiver->output()).back();
    EXPECT_EQ(failure["reason"], "limit");
    EXPECT_EQ(failure.value("element", ""), element);
  }
  EXPECT_EQ(folder_.entries("in"), Strings());
  send(Bytes::metadata(2, 1000) + Bytes::file("a", half) + Bytes::file("b", half));
  EXPECT_TRUE(receiver->waitForOutput("\"finished\"")) << "as much as is allowed";
}

TEST_F(CliAdmissionTest, AsksBeforeAnythingIsStoredWhileOthersGoOn) {
  const auto receiver = started(setupAtTerminal(receiveCommand({"--ask"})));
  auto first = send(Bytes::metadata(2, 9) + Bytes::folder("A\x1b[2J") + Bytes::header("A\x1b[2J/b", 9) + "1234");
  ASSERT_TRUE(receiver->waitForErrors("receive \"A\\u{1b}[2J\" (2 elements, 9 bytes) from 127.0.0.1? [y/N] "))
      << receiver->errors();
  EXPECT_EQ(folder_.entries("in"), Strings());
  auto second = send(Bytes::metadata(1, 5) + Bytes::file(Bytes::textName, "hello"));
  receiver->type("y\n");
  ASSERT_TRUE(receiver->waitForErrors("receive a text (5 bytes) from 127.0.0.1? [y/N] "));
  first.send("56789");
  ASSERT_TRUE(receiver->waitForOutput("saved ")) << "what was agreed to goes on while something else is asked";
  receiver->type("yes\n");
  ASSERT_TRUE(receiver->waitForOutput("hello\n"));

  for (const std::string answer : {"n", "", "what?"}) {
    auto refused = send(Bytes::metadata(1, 1) + Bytes::file("refused" + answer, "x"));
    ASSERT_TRUE(receiver->waitForErrors("\"refused" + answer + "\" (1 byte) from 127.0.0.1? [y/N] "));
    receiver->type(answer + '\n');
    EXPECT_EQ(refused.receiveAll(), "");
    EXPECT_EQ(refused.error(), std::errc::connection_reset);
  }
  EXPECT_TRUE(receiver->waitForErrors("\"refused\": this computer does not accept it"));
  EXPECT_EQ(folder_.entries("in"), Strings{"A\x1b[2J"});
}

TEST_F(CliAdmissionTest, WhatWasAgreedToIsWhatComes) {
  const auto receiver = started(setupAtTerminal(receiveCommand({"--ask", "--json"})));
  auto connection = send(Bytes::metadata(2, 5) + Bytes::file("small", "12345") + Bytes::header("large", 1));
  ASSERT_TRUE(receiver->waitForOutput("\"question\",\"transfer\":1"));
  receiver->type("y\n");
  EXPECT_EQ(connection.receiveAll(), "");
  ASSERT_TRUE(receiver->waitForOutput("\"failed\",\"transfer\":1"));
  EXPECT_EQ(eventIn(receiver->output(), "answer")["accepted"], true);
  EXPECT_EQ(eventIn(receiver->output(), "failed")["reason"], "limit");
  EXPECT_EQ(folder_.entries("in"), Strings());
}

}  // namespace
}  // namespace vesko
