#include <atomic>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/text/Base64.h"
#include "hosts/common/control/ControlServer.h"
#include "tests/hosts/cli/CliFixture.h"
#include "tests/hosts/events/ListSink.h"
#include "tests/support/RawDatagrams.h"

namespace vesko {
namespace {

using namespace std::string_literals;

/// A host runs on this machine and knows others; all of them are one receiver.
class CliPeersTest : public CliTest {
 protected:
  CliPeersTest() {
    ::setenv("XDG_RUNTIME_DIR", runtime_.path().c_str(), 1);
    receiver_ = startReceiver();
    std::error_code error;
    host_->listen(hostPort, error);
    EXPECT_FALSE(error) << error.message();
  }

  [[nodiscard]] PeerView peerCalled(const std::string& name, const std::string& key) const {
    return {key, "127.0.0.1", port_, name + " [Vesko] (Macintosh)", "", {}};
  }

  void addPeer(const std::string& name, const std::string& key) const {
    hub_->publish(PeerAppearedEvent{peerCalled(name, key)});
  }

  [[nodiscard]] PeerView mac() const { return peerCalled("Mac at office-mac", "10.0.0.8"); }

  [[nodiscard]] Process::Result sendTo(const std::string& name, const std::string& wait = "0.2") const {
    return run({"text", "--to", name, "--port", std::to_string(hostPort), "--wait", wait, "to " + name});
  }

  static constexpr std::uint16_t hostPort = 4000;
  std::shared_ptr<EventHub> hub_ = std::make_shared<EventHub>(std::make_shared<ListSink>());
  EventList announced_;
  std::atomic<bool> isNew_ = false;  ///< the host has just started; then somebody else is about to be heard
  std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::serial("test");
  std::shared_ptr<ControlServer> host_ = std::make_shared<ControlServer>(
      hub_, ControlActions{[this] {
                             addPeer("Late at office", "10.0.0.9");
                             announced_.add("announced");
                           },
                           [](const std::string& key) { return "data:image/png;base64," + base64Encoded(key); },
                           [this] {
                             // Another machine answers only now; the hub must not be called from here.
                             if (isNew_)
                               queue_->async([hub = hub_, mac = mac()] { hub->publish(PeerAppearedEvent{mac}); });
                             return std::chrono::hours(isNew_ ? 0 : 1);
                           }});
  std::unique_ptr<Process> receiver_;
};

TEST_F(CliPeersTest, SendsToWhomANameFits) {
  addPeer("Anna at attic", "10.0.0.2");
  addPeer("Joanna at attic 2", "10.0.0.3");
  addPeer("ÄRGER at Straße", "10.0.0.4");
  for (const auto* name : {"Joanna", "ärger", "attic 2", "ANNA AT ATTIC", "anna at attic [vesko] (macintosh)"}) {
    const auto result = sendTo(name);
    EXPECT_EQ(result.code, 0) << name << result.errors;
    EXPECT_TRUE(receiver_->waitForOutput("to "s + name + '\n'));
  }
  EXPECT_TRUE(sendTo("attic 2").output.starts_with("sent a text to Joanna at attic 2 (" + peer() + "): "));
  auto result = sendTo("anna");
  EXPECT_EQ(result.code, 3);
  const std::string address = " (" + peer() + ")\n";
  EXPECT_EQ(result.errors,
            "vesko: \"anna\" matches 2 machines; use more of the name, or the address:\n  Anna at attic" + address +
                "  Joanna at attic 2" + address);
  EXPECT_EQ(announced_.count("announced"), 0U) << "nobody has to be bothered for what is known";
  EXPECT_EQ(sendTo("late").code, 0) << "but those who are not known are called for";
  result = sendTo("nobody\x1b");
  EXPECT_EQ(result.code, 3);
  EXPECT_TRUE(result.errors.starts_with("vesko: no machine matches \"nobody\\u{1b}\"; found:\n  Anna at attic"))
      << result.errors;
}

TEST_F(CliPeersTest, EveryResultNamesWhomItWasSentTo) {
  addPeer("Zoe\x1b at zoo", "10.0.0.2");
  EXPECT_TRUE(sendTo(peer()).output.starts_with("sent a text to Zoe\\u{1b} at zoo (" + peer() + "): "));
  const auto result = run({"text", "--to", "zoo", "--port", std::to_string(hostPort), "--json", "hello"});
  const auto started = eventIn(result.output, "transferStarted");
  EXPECT_EQ(started["systemSignature"], "Zoe\x1b at zoo [Vesko] (Macintosh)");
  EXPECT_EQ(started["port"], port_);
  receiver_->signal(SIGTERM);
  EXPECT_EQ(receiver_->wait(), 0);
  EXPECT_TRUE(
      sendTo("zoo").errors.starts_with("vesko: sending a text to Zoe\\u{1b} at zoo (" + peer() + "): connecting"));
  const std::string stranger = addressOf(RawListener(false).port());
  EXPECT_TRUE(sendTo(stranger).errors.starts_with("vesko: sending a text to " + stranger + ": connecting"));
}

TEST_F(CliPeersTest, APartOfANameIsNotSettledBeforeAllHadTimeToAnswer) {
  addPeer("Pc at office-pc", "10.0.0.2");
  EXPECT_EQ(sendTo("office").code, 0) << "a host that has long been listening knows everybody";
  isNew_ = true;
  const auto result = sendTo("office", "1");
  EXPECT_EQ(result.code, 3) << result.output;
  EXPECT_TRUE(result.errors.starts_with("vesko: \"office\" matches 2 machines")) << result.errors;
  hub_->publish(PeerDisappearedEvent{mac()});
  const std::string longest = "3600";  // seconds
  EXPECT_EQ(sendTo("mac at office-mac", longest).code, 0);
  EXPECT_EQ(sendTo("Pc at office-pc", longest).code, 0);
}

TEST_F(CliPeersTest, LetsThePersonAtATerminalChoose) {
  addPeer("Zoe at zoo", "10.0.0.2");
  addPeer("Anna at attic", "10.0.0.3");
  for (const auto* answer : {"\n2\n", "zoo\n", "3\n", "\x04"}) {
    const bool isGood = answer[0] == '\n' || answer[0] == 'z';
    Process sender(setupAtTerminal({"text", "--port", std::to_string(hostPort), "chosen by "s + answer}));
    ASSERT_TRUE(sender.waitForErrors("send to (number or name): "));
    EXPECT_TRUE(sender.waitForErrors("  1  Anna at attic")) << sender.errors();
    sender.type(answer);
    EXPECT_EQ(sender.wait(), isGood ? 0 : 3) << sender.errors();
    if (isGood) {
      EXPECT_TRUE(receiver_->waitForOutput("chosen by "s + answer));
    }
  }
}

TEST_F(CliPeersTest, ListsThemOnceOrForAsLongAsTheHostRuns) {
  addPeer("Zoe at zoo", "10.0.0.2");
  addPeer("Anna\x1b at attic", "10.0.0.3");
  const std::string port = std::to_string(hostPort);
  EXPECT_EQ(run({"peers", "--port", port, "--quiet"}).output.find("Anna\\u{1b} at attic  " + peer()), 0U);
  EXPECT_TRUE(run({"peers", "--port", port}).output.starts_with("NAME" + std::string(17, ' ') + "ADDRESS "));
  const auto list = nlohmann::json::parse(run({"peers", "--port", port, "--json"}).output);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[1]["key"], "10.0.0.2");

  Process watch(setupFor({"peers", "--watch", "--port", port}));
  Process events(setupFor({"peers", "--watch", "--json", "--port", port}));
  ASSERT_TRUE(watch.waitForOutput("here  Zoe at zoo"));
  ASSERT_TRUE(events.waitForOutput("10.0.0.2"));
  hub_->publish(PeerDisappearedEvent{{"10.0.0.2", "", 0, "", "", {}}});
  EXPECT_TRUE(watch.waitForOutput("gone  Zoe at zoo (" + peer() + ")\n"));
  EXPECT_TRUE(events.waitForOutput("{\"event\":\"peerDisappeared\",\"key\":\"10.0.0.2\"}\n"));
  events.signal(SIGINT);
  EXPECT_EQ(events.wait(), 0);
  host_.reset();
  EXPECT_EQ(watch.wait(), 1);
}

TEST_F(CliPeersTest, SavesThePicturesThereAre) {
  addPeer("Zoe at zoo", "10.0.0.2");
  auto pictured = peerCalled("Anna at attic", "10.0.0.3");
  pictured.ip = "10.0.0.3";
  pictured.avatar = "png";
  hub_->publish(PeerAppearedEvent{pictured});
  folder_.write("pictures/10.0.0.3.png", "an older one");
  const Arguments command{"peers", "--port", std::to_string(hostPort), "--save-avatars"};
  const auto result = run(joined(command, {folder_.path("pictures")}));
  EXPECT_EQ(result.code, 0) << result.errors;
  EXPECT_NE(result.output.find("10.0.0.3:"), std::string::npos);
  EXPECT_EQ(folder_.entries("pictures"), std::vector<std::string>{"10.0.0.3.png"});
  EXPECT_EQ(folder_.read("pictures/10.0.0.3.png"), "10.0.0.3") << "what the host gave for this key";
  EXPECT_EQ(run(joined(command, {folder_.path("pictures/10.0.0.3.png")})).code, 1);
}

TEST_F(CliTest, LooksAroundByItselfOnlyWhereItsPortIsFree) {
  const auto result = run({"peers", "--wait", "0", "--json"});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.output, "[]\n");
  const RawDatagrams other(4644, "0.0.0.0");
  for (const auto* port : {"4644", "4000"}) {
    const auto refused = run({"text", "--to", "somebody", "--port", port, "hello"});
    EXPECT_EQ(refused.code, 7) << port;
    EXPECT_NE(refused.errors.find("4644"), std::string::npos) << refused.errors;
  }
}

}  // namespace
}  // namespace vesko
