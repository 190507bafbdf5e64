#include <chrono>

#include "tests/lan/LanFixture.h"

namespace vesko {
namespace {

/// Machine 1 is the one at which commands are given; the others receive.
class CommandsTest : public LanTest {
 protected:
  [[nodiscard]] static testing::AssertionResult seeEachOther(LanHost& one, int oneMachine, LanHost& other,
                                                             int otherMachine) {
    if (auto result = one.tells("peerAppeared", ip(otherMachine)); !result) return result;
    return other.tells("peerAppeared", ip(oneMachine));
  }

  /// Names of no machine, or of more than one: those there are shall be listed.
  void expectNoReceiver() const {
    for (const auto& command :
         {Arguments{"send", "--to", "machine", "/etc/passwd"}, Arguments{"text", "--to", "nobody"}}) {
      const auto result = run(1, command);
      EXPECT_EQ(result.code, 3);
      EXPECT_EQ(result.output, "");
      for (const int machine : {2, 3}) {
        EXPECT_NE(result.errors.find(described(machine)), std::string::npos) << result.errors;
      }
    }
  }

  [[nodiscard]] static std::string described(int machine) {
    return "root at machine" + std::to_string(machine) + " (" + ip(machine) + ')';
  }
};

TEST_F(CommandsTest, TakenPortsAreToldBeforeAnyHello) {
  makeMachines(1);
  const auto watch = strangerOn();
  for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
    auto taken = std::make_unique<LanSocket>(*lan_, 1, defaultPort, type);
    const auto result = run(1, {"receive", "--json", "--dir", inboxOf(1)});
    EXPECT_EQ(result.code, 7);
    const auto event = nlohmann::json::parse(result.output);
    EXPECT_EQ(event["event"], "startupFailure");
    EXPECT_EQ(event["endpoint"], type == SOCK_DGRAM ? "udp" : "tcp");
    EXPECT_EQ(event["port"], defaultPort);
    taken.reset();
    LanSocket(*lan_, 1).send("the first", ip(stranger));
    EXPECT_EQ(watch.receive(), ip(1) + ":4644 the first");
  }
}

TEST_F(CommandsTest, ReceiversAreFoundByTheirNames) {
  makeMachines(3);
  const auto voice = strangerOn();
  const auto host2 = receive(2);
  const auto host3 = receive(3);
  EXPECT_TRUE(seeEachOther(*host2, 2, *host3, 3));
  // Somebody else whom a part of a name fits may be slow to answer; nobody else has the whole one, however long the
  // wait.
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(run(1, {"send", "--to", "machine2", folder_.write("alone", "by itself")}).code, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  const auto text = run(1, {"text", "--to", "ROOT AT MACHINE3", "--wait", "3600", "to a whole name"});
  EXPECT_EQ(text.code, 0);
  EXPECT_TRUE(text.output.starts_with("sent a text to " + described(3) + ": ")) << text.output;
  EXPECT_TRUE(host2->tells("/alone\"}"));
  EXPECT_EQ(folder_.read("in2/alone"), "by itself");
  EXPECT_TRUE(host2->tells("peerDisappeared", ip(1)));
  expectNoReceiver();

  const auto host1 = receive(1);
  EXPECT_TRUE(seeEachOther(*host1, 1, *host2, 2));
  EXPECT_TRUE(seeEachOther(*host1, 1, *host3, 3));
  // What host 2 tells of this comes after what it tells of host 1, which was heard before.
  voice.send("\2before", ip(2));
  EXPECT_TRUE(host2->tells("before"));
  auto story = host2->story();
  EXPECT_EQ(run(1, {"send", "--to", "machine2", folder_.write("asking", "the host")}).code, 0);
  EXPECT_EQ(run(1, {"text", "--to", "machine3", "a text"}).code, 0);
  EXPECT_TRUE(host2->tells("/asking\"}"));
  EXPECT_EQ(folder_.read("in2/asking"), "the host");
  EXPECT_TRUE(host3->tells(R"("text":"a text"})"));
  voice.send("\2after", ip(2));
  EXPECT_TRUE(host2->tells("after"));
  story.push_back("peerUpdated " + ip(stranger));
  EXPECT_EQ(host2->story(), story);
  expectNoReceiver();
}

}  // namespace
}  // namespace vesko
