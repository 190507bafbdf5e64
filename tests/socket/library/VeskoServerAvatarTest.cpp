#include <netinet/in.h>

#include <algorithm>

#include "Platform/queues/MainQueue.h"
#include "Platform/text/Base64.h"
#include "Platform/user/NSImage.h"
#include "tests/socket/library/VeskoServerFixture.h"
#include "tests/support/IsSoon.h"
#include "tests/support/RawDatagrams.h"

namespace vesko {
namespace {

using namespace std::string_literals;

constexpr const char* avatarPath = "/virno/avatar";
constexpr const char* urlBeginning = "data:image/png;base64,";
constexpr std::uint32_t maximumFetches = 8;
constexpr std::size_t maximumPicture = std::size_t{4} << 20U;

/// A PNG of one pixel.
std::string picture() {
  return *base64Decoded(
      "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==");
}

class PictureRecorder final : public VeskoPeerDiscoveryDelegate, public EventList {
 public:
  void peerDidUpdate(const std::string& key, const std::shared_ptr<VeskoPeer>& /*peer*/) override {
    add((MainQueue::shared()->isCurrent() ? "main " : "elsewhere ") + key);
  }
};

/// A service that fetches all pictures from 127.0.0.1, whatever address a machine says hello from.
class OneMachineServer final : public VeskoServer {
 public:
  using VeskoServer::VeskoServer;
  void handleAvatar(const std::shared_ptr<VeskoPeer>& peer) override {
    peer->setIp("127.0.0.1");
    VeskoServer::handleAvatar(peer);
  }
};

class VeskoServerAvatarTest : public VeskoServerTest {
 protected:
  using Peers = std::vector<std::shared_ptr<VeskoPeer>>;

  VeskoServerAvatarTest() {
    ::setenv("HOME", home_.path().c_str(), 1);
    server_ = std::make_shared<OneMachineServer>(0, 0, clock_);
    server_->downloadsFolder = folder_.path("downloads");
    server_->setDelegate(observer_);
    server_->startServer();
    Log::setSink(nullptr);
  }

  ~VeskoServerAvatarTest() override { waitForTasks(server_->broadcastDispatchQueue()); }

  /// What the endpoint answers until it closes the connection.
  [[nodiscard]] std::string answerTo(const std::string& target, const std::string& method = "GET") const {
    auto connection = RawConnection::to(server_->boundHttpPort());
    connection.send(method + ' ' + target + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    return connection.receiveAll();
  }

  /// Hears a hello of a machine, 127.0.0.1 or another, whose pictures are served on `port`: its record.
  [[nodiscard]] std::shared_ptr<VeskoPeer> meet(std::uint16_t port, std::uint32_t number = 1) {
    const auto service = static_cast<std::uint16_t>(port - 1);
    hear("\5"s + static_cast<char>(service & 0xFFU) + static_cast<char>(service >> 8U) + "S", number);
    return server_->peerWithKey("127.0.0." + std::to_string(number));
  }

  void hear(const std::string& bytes, std::uint32_t number = 1) {
    const std::string from = senderAddress(INADDR_LOOPBACK - 1 + number);
    server_->broadcastDispatchQueue()->async([=, this] { server_->udpSocketDidReceiveData(bytes, from); });
    waitForTasks(server_->broadcastDispatchQueue());
  }

  /// Returns when the loop has done what it was asked for so far.
  void waitForLoop() const { (void)answerTo(avatarPath); }

  /// Answers the next request for a picture; back when the service has closed the connection.
  static void answer(const RawListener& machine, const std::string& response) {
    RawConnection connection = machine.accept();
    EXPECT_TRUE(connection.receive(4).starts_with("GET "));
    connection.send(response);
    connection.endSending();
    (void)connection.receiveAll();
  }

  static std::string response(const std::string& body, const std::string& status = "200 OK") {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  }

  /// As many machines, from `first` on, as are asked at once.
  [[nodiscard]] Peers meetMany(std::uint16_t port, std::uint32_t first = 1) {
    Peers peers;
    for (std::uint32_t i = 0; i < maximumFetches; ++i) peers.push_back(meet(port, first + i));
    return peers;
  }

  [[nodiscard]] static bool hasPicture(const std::shared_ptr<VeskoPeer>& peer) {
    return peer->avatar().starts_with(urlBeginning);
  }

  /// True as soon as the picture is there; false when it does not come.
  [[nodiscard]] static bool arrives(const VeskoPeer& peer) {
    return isSoon([&] { return peer.avatar().starts_with(urlBeginning); });
  }

  TemporaryFolder home_;
  std::shared_ptr<PictureRecorder> observer_ = std::make_shared<PictureRecorder>();
};

TEST_F(VeskoServerAvatarTest, ServesThePictureAsItIsAtTheMoment) {
  EXPECT_EQ(answerTo(avatarPath), "HTTP/1.1 404 Not Found\r\nServer: Vesko/1.0\r\n\r\nAvatar is unavailable.");
  home_.write(".face", picture());
  const std::string png = NSImage::decode(picture())->pngRepresentation().value();
  const std::string good = "HTTP/1.1 200 OK\r\nServer: Vesko/1.0\r\nContent-Type: image/png\r\nContent-Length: " +
                           std::to_string(png.size()) + "\r\n\r\n" + png;
  for (const auto* method : {"GET", "POST", "DELETE", "NONSENSE"}) EXPECT_EQ(answerTo(avatarPath, method), good);
  EXPECT_EQ(answerTo("http://anywhere/virno/avatar"), good);
  home_.write(".face", "no picture");
  EXPECT_TRUE(answerTo(avatarPath).starts_with("HTTP/1.1 404 Not Found\r\n"));
}

TEST_F(VeskoServerAvatarTest, QuotesWhatItDoesNotServe) {
  const std::pair<std::string, std::string> cases[] = {
      {"/", "/"},
      {"/virno/avatar/", "/virno/avatar/"},
      {"/VIRNO/avatar", "/VIRNO/avatar"},
      {"/\"'\\", R"(/\"\'\\)"},
      {"/%00%09%0a%0D%1b%7F%C2%9f", R"(/\0\t\n\r\u{1B}\u{7F}\u{9F})"},
      {"/%C3%A9%FF", "/é\uFFFD"},
  };
  for (const auto& [target, quoted] : cases) {
    EXPECT_EQ(answerTo(target),
              "HTTP/1.1 400 Bad Request\r\nServer: Vesko/1.0\r\n\r\nThis is a Vesko metadata server. There is nothing "
              "implemented for \"" +
                  quoted + "\".");
  }
}

TEST_F(VeskoServerAvatarTest, FetchesAPictureOnceAndTellsOnTheMainQueue) {
  const RawListener machine;
  const auto peer = meet(machine.port());
  EXPECT_EQ(peer->avatar(), "loading");
  EXPECT_EQ(meet(machine.port()), peer);
  observer_->take();
  RawConnection connection = machine.accept();
  const std::string request = "GET /virno/avatar HTTP/1.1\r\n";
  EXPECT_EQ(connection.receive(request.size()), request);
  connection.send(response(picture()));
  ASSERT_TRUE(arrives(*peer));
  EXPECT_EQ(peer->avatar(), urlBeginning + base64Encoded(picture()));
  waitForTasks(server_->broadcastDispatchQueue());
  MainQueue::shared()->drain();
  EXPECT_EQ(observer_->all(), Strings{"main 127.0.0.1"});
  (void)meet(machine.port());
  EXPECT_FALSE(machine.hasWaiting()) << "neither the second nor the third hello asked again";
}

TEST_F(VeskoServerAvatarTest, TakesNothingButAPicture) {
  const std::string huge = "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\x0F\x42\x40\0\x0F\x42\x40\x08\x06\0\0\0"s;
  Strings cases = {response(""),
                   response("no picture"),
                   response(picture().substr(0, 40)),
                   response(huge),
                   response(std::string(maximumPicture + 1, 'x')),
                   "HTTP/1.1 200 OK\r\nContent-Length: 9999\r\n\r\n" + picture(),
                   "HTTP/2.0 200 OK\r\n\r\n" + picture(),
                   "ICY 200 OK\r\n\r\n" + picture(),
                   "nonsense\r\n\r\n",
                   ""};
  const RawListener elsewhere;
  const std::string location = "\r\nLocation: http://127.0.0.1:" + std::to_string(elsewhere.port()) + avatarPath;
  for (const auto* status : {"201 Created", "206 Partial Content", "301 Moved", "302 Found", "307 Redirect",
                             "401 Unauthorized", "404 Not Found", "500 Error", "999 ", "2000 OK", "-200 OK"}) {
    cases.push_back(response(picture(), status + location));
  }
  Peers peers;
  for (const auto& bytes : cases) {
    const RawListener machine;
    peers.push_back(meet(machine.port(), static_cast<std::uint32_t>(peers.size()) + 2));
    answer(machine, bytes);
  }
  const RawListener machine;
  const auto good = meet(machine.port());
  answer(machine, response(picture()));
  EXPECT_TRUE(arrives(*good)) << "the service goes on";
  EXPECT_FALSE(elsewhere.hasWaiting()) << "no redirection is followed";
  for (std::size_t i = 0; i < peers.size(); ++i) {
    EXPECT_EQ(peers[i]->avatar(), "loading") << testing::PrintToString(cases[i].substr(0, 60));
  }
  hear("\3");
  (void)meet(0);  // port 65535, which nothing is beside
  EXPECT_EQ(server_->peerWithKey("127.0.0.1")->avatar(), "");
}

TEST_F(VeskoServerAvatarTest, WhoLeavesIsAskedForNothingMore) {
  const RawListener machine;
  const Peers peers = meetMany(machine.port());
  std::vector<RawConnection> connections;
  for (std::uint32_t i = 0; i < maximumFetches; ++i) connections.push_back(machine.accept());
  const auto waiting = meet(machine.port(), 101);
  const auto next = meet(machine.port(), 102);
  hear("\3Bye Bye", 101);
  hear("\3Bye Bye", 1);
  answer(machine, response(picture()));
  EXPECT_TRUE(arrives(*next)) << "the place of who has left is free";
  for (auto& connection : connections) connection.send(response(picture()));
  for (auto& connection : connections) (void)connection.receiveAll();
  for (const auto& peer : Peers(peers.begin() + 1, peers.end())) EXPECT_TRUE(arrives(*peer));
  EXPECT_EQ(peers.front()->avatar(), "loading");
  EXPECT_EQ(waiting->avatar(), "loading");
  waitForLoop();
  EXPECT_FALSE(machine.hasWaiting());
  EXPECT_NE(meet(machine.port()), peers.front());
  answer(machine, response(picture()));
  EXPECT_TRUE(arrives(*server_->peerWithKey("127.0.0.1"))) << "a new record, a new picture";
}

TEST_F(VeskoServerAvatarTest, AllPicturesTogetherAreBounded) {
  const RawListener machine;
  const std::string large = picture() + std::string(maximumPicture - picture().size(), 'x');
  const Peers peers = meetMany(machine.port());
  const auto pictures = [&] {
    MainQueue::shared()->drain();
    return observer_->count("main");
  };
  // Of 64 MiB: 5.3 MiB are less than an eighth of what three leave, and more than one of what four do.
  for (std::size_t number = 1; number <= 4; ++number) {
    answer(machine, response(large));
    ASSERT_TRUE(isSoon([&] { return pictures() == number; }));
  }
  answer(machine, response(large));
  const auto small = meet(machine.port(), 100);
  std::vector<RawConnection> connections;
  for (int i = 0; i < 3; ++i) connections.push_back(machine.accept());
  answer(machine, response(picture()));
  EXPECT_TRUE(arrives(*small)) << "large ones leave room";
  EXPECT_EQ(std::ranges::count_if(peers, hasPicture), 4);

  const auto first = std::ranges::find_if(peers, hasPicture) - peers.begin();
  hear("\3", static_cast<std::uint32_t>(first) + 1);
  EXPECT_TRUE(hasPicture(peers[static_cast<std::size_t>(first)])) << "who keeps the record keeps the picture";
  const auto later = meet(machine.port(), 101);
  answer(machine, response(large));
  EXPECT_TRUE(arrives(*later)) << "a share that was given back is there for the next";
}

TEST_F(VeskoServerAvatarTest, APictureHoldsItsPlaceUntilItIsKept) {
  const RawListener machine;
  const Peers peers = meetMany(machine.port());
  const auto next = meet(machine.port(), 100);
  {
    const HeldQueue held(server_->broadcastDispatchQueue());
    for (std::uint32_t i = 0; i < maximumFetches; ++i) answer(machine, response(picture()));
    for (int i = 0; i < 3; ++i) waitForLoop();
    EXPECT_FALSE(machine.hasWaiting());
  }
  answer(machine, response(picture()));
  EXPECT_TRUE(arrives(*next));
  EXPECT_TRUE(std::ranges::all_of(peers, hasPicture));
}

TEST_F(VeskoServerAvatarTest, AMainQueueThatNobodyDrainsHoldsOneTaskAndNoPicture) {
  const RawListener machine;
  std::vector<std::weak_ptr<VeskoPeer>> gone;
  for (std::uint32_t number = 1; number <= 3; ++number) {
    for (int i = 0; i < 5; ++i) {
      hear("\3", number);
      const auto peer = meet(machine.port(), number);
      answer(machine, response(picture()));
      ASSERT_TRUE(arrives(*peer));
      gone.push_back(peer);
    }
  }
  for (const std::uint32_t number : {1U, 3U}) hear("\3", number);
  waitForTasks(server_->broadcastDispatchQueue());
  EXPECT_EQ(std::ranges::count_if(gone, &std::weak_ptr<VeskoPeer>::expired), std::ssize(gone) - 1);
  EXPECT_EQ(MainQueue::shared()->drain(), 1U);
  EXPECT_EQ(observer_->all(), Strings{"main 127.0.0.2"});
}

}  // namespace
}  // namespace vesko
