#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "VeskoKit/VeskoIncomingTransfer.h"
#include "VeskoKit/VeskoPeer.h"
#include "VeskoKit/VeskoTransfer.h"

namespace vesko {

class AvatarEndpoint;
class AvatarFetches;
class Clock;
class DefaultHTTPServer;
class DispatchQueue;
class GCDAsyncSocket;
class GCDAsyncUdpSocket;
class IncomingTransferRoom;
class NSApp;
class OwnAddresses;
class SelectorEventLoop;
struct DiscoveryHello;

/// Hears of the machines that come and go. Calls come on the service's queue "broadcast", after the change of the peer
/// table that they tell of, but for those that tell of a picture, which come on the main queue. Any operation of the
/// service may be used inside them. What takes long delays discovery.
///
/// Whoever says hello from an address of this machine, or of 0.0.0.0/8 (RFC 6890), which no answer could be sent to, is
/// nobody. A datagram that is empty, too short or not UTF-8 is none.
class VeskoPeerDiscoveryDelegate {
 public:
  virtual ~VeskoPeerDiscoveryDelegate() = default;

  /// A machine that was not in the table has said hello.
  virtual void peerDidAppear(const std::string& /*key*/, const std::shared_ptr<VeskoPeer>& /*peer*/) {}

  /// One that is in the table has said hello again, and its record, the same as ever, has been refreshed; or, on the
  /// main queue, its picture has arrived and it has not left since.
  virtual void peerDidUpdate(const std::string& /*key*/, const std::shared_ptr<VeskoPeer>& /*peer*/) {}

  /// A machine has said goodbye, and its record has left the table.
  virtual void peerDidDisappear(const std::string& /*key*/) {}
};

/// An endpoint that could not be opened.
struct VeskoFailedEndpoint {
  std::string endpoint;   ///< "udp", "http" or "tcp"
  std::string message;    ///< what the user is shown
  std::error_code error;  ///< the system's reason
};

/// The service a host creates to take part: it keeps a table of the other machines with their users' pictures, serves
/// its own user's, accepts transfers and keeps those it starts.
///
/// Made with `std::make_shared`. Set it up, call `startServer`, both on one thread, and then `sayHello`; call
/// `sayGoodbye` at the end. There is no stop: destroying the service closes its endpoints, and the transfers it keeps
/// end with it.
class VeskoServer : public std::enable_shared_from_this<VeskoServer> {
 public:
  static constexpr std::uint16_t defaultPort = 4644;

  /// Machines in the table; beyond, newcomers are ignored: what the network says must not fill the memory.
  static constexpr std::size_t maximumPeers = 65'536;

  /// Hellos answered within a second: enough for a large network that wakes up at once, and a bound for whoever has us
  /// answer to addresses that never asked.
  static constexpr int maximumAnswers = 1'000;

  using PeerTable = std::map<std::string, std::shared_ptr<VeskoPeer>>;

  /// On the usual ports, 4644 and, for pictures, 4645. Both constructors open no endpoint, but make what the service
  /// works with, and throw `std::system_error` when the system has no thread or no descriptors left for that.
  VeskoServer();

  /// On ports of the caller's, pictures on the one after `tcpPort` (after 65535 there is none, and so no pictures); 0
  /// lets the system choose, of pictures too. `clock`, the machine's by default, is that of the service's queues.
  VeskoServer(std::uint16_t udpPort, std::uint16_t tcpPort, std::shared_ptr<Clock> clock = nullptr);
  virtual ~VeskoServer();
  VeskoServer(const VeskoServer&) = delete;
  VeskoServer& operator=(const VeskoServer&) = delete;

  /// The port that transfers are accepted on; 0 lets the system choose. Set it before `startServer`. The port of
  /// pictures does not follow it.
  std::uint16_t localTcpPort;

  /// The port that hellos are heard on and, by default, sent to, and that others are told of where it is not
  /// `defaultUdpPort`. Set it before `startServer`; 0 is then replaced by a port of the system's choice.
  std::uint16_t localUdpPort;

  /// The well-known port of transfers, for hosts to compare with.
  std::uint16_t defaultTcpPort = defaultPort;

  /// The well-known port of discovery: every hello to all goes there too. Set it before `startServer`.
  std::uint16_t defaultUdpPort = defaultPort;

  /// Where incoming items go; empty: the current user's downloads folder. Set it before `startServer`.
  ///
  /// Nothing there is replaced: where a name is taken, a number from 2 on stands in parentheses before the extension,
  /// and a name that becomes longer than 255 bytes by that loses characters before the parentheses. What is named as
  /// the library's own storage folders (".VeskoTransferIntermediateStorage" and 46 digits and letters) arrives inside a
  /// folder "Received by Vesko at" and the time, as several items do.
  std::string downloadsFolder;

  /// Keep what had fully arrived when an incoming transfer fails. Set it before `startServer`.
  bool keepPartial = false;

  /// Bytes that one incoming transfer may announce or bring. Set it before `startServer`.
  std::uint64_t maximumIncomingSize = VeskoIncomingTransferSettings::unlimited;

  /// Incoming transfers alive at once, at least 1. When one more connection comes, the transfer whose sender has sent
  /// nothing for the longest time is broken off, so that connections that only take up room cost each other theirs. By
  /// default as many as an eighth of the process's descriptors, 512 at most. Set it before `startServer`.
  std::size_t maximumIncomingTransfers;

  /// The program's user interface, for alerts; without one they go to standard error. Set it before `startServer`.
  std::shared_ptr<NSApp> application;

  /// The observer of the peer table. Any thread. This and the next three setters keep what they are given, and let go
  /// of what was there, which may then use the service; a call that is under way on another thread may end after the
  /// return.
  void setDelegate(std::shared_ptr<VeskoPeerDiscoveryDelegate> delegate);

  [[nodiscard]] std::shared_ptr<VeskoPeerDiscoveryDelegate> delegate() const;

  /// The observers given to each new incoming transfer. Any thread; they count for connections accepted from now on.
  void setIncomingDelegate(std::shared_ptr<VeskoIncomingTransferDelegate> delegate);
  [[nodiscard]] std::shared_ptr<VeskoIncomingTransferDelegate> incomingDelegate() const;
  void setIncomingOutcomeDelegate(std::shared_ptr<VeskoTransferOutcomeDelegate> delegate);

  /// Who decides what is let in; without one everything is. Any thread; it counts for connections accepted from now on.
  void setIncomingGuard(std::shared_ptr<VeskoIncomingTransferGuard> guard);

  /// Sweeps the storage folders of dead transfers, in the background once that takes longer than a second, and opens
  /// the endpoints. One that cannot be opened is listed in `failedEndpoints` and shown to the user; the start goes on
  /// with the next. A later call tries those that are not open again. Throws `std::system_error` when the system has no
  /// thread left for the endpoint of pictures.
  virtual void startServer();

  /// Opens the discovery endpoint alone, in place of `startServer`, for a program that only looks around: it sees the
  /// others, and their pictures, but serves nothing.
  void startDiscovery();

  /// Says hello: to everybody on the networks of this machine's interfaces or, with `dest`, to that IPv4 address
  /// (dotted decimal) alone; on `port`, by default `localUdpPort`, and to everybody also on `defaultUdpPort`. Those who
  /// hear a hello to everybody answer. Never waits and reports no failure; without a discovery endpoint it does
  /// nothing, and what the system has not taken within 5 seconds is dropped. Any thread, once the service has started.
  virtual void sayHello();
  virtual void sayHello(const std::string& dest);
  virtual void sayHello(const std::string& dest, std::uint16_t port);

  /// Takes leave, in the same three forms; the others drop this machine from their tables.
  virtual void sayGoodbye();
  virtual void sayGoodbye(const std::string& dest);
  virtual void sayGoodbye(const std::string& dest, std::uint16_t port);

  /// The datagrams that these send; an empty `dest` means everybody. A hello to one, such as an answer, may describe
  /// this machine as it was a second ago: a crowd may ask at once. Any thread.
  [[nodiscard]] virtual std::string createHelloPacket(const std::string& dest, std::uint16_t port);
  [[nodiscard]] virtual std::string createGoodbyePacket(const std::string& dest, std::uint16_t port);

  /// How this machine describes itself to others: its user's full name, or the login name where that is empty, and its
  /// own. Others are told 4,096 bytes of it at most. Any thread.
  [[nodiscard]] virtual std::string getSystemSignature();

  /// Starts a transfer and keeps it until it is pruned. Any thread.
  virtual void startTransfer(const std::shared_ptr<VeskoTransfer>& transfer);

  /// True when `sender` is, character for character, the address of an interface of this machine. Any thread.
  [[nodiscard]] virtual bool isLocalPeer(const std::string& sender);

  /// The broadcast address of each interface address, in the order of the system; interfaces without a netmask have
  /// none. Any thread.
  [[nodiscard]] virtual std::vector<std::string> findBroadcastAddress();

  /// Fetches the picture of the user of `peer`, over HTTP, unless it has one or was asked for it before. The record
  /// says "loading" from then on, and for good where nothing comes, within 10 seconds (2 of them for the connection),
  /// that is a PNG of at most 4 MiB and 4,096 pixels each way. Eight are fetched at once, the others wait. For the
  /// "broadcast" queue.
  ///
  /// The pictures in the table take 64 MiB at most, as data URLs, and one of them at most an eighth of what the others
  /// leave of that; one that is too large is not kept. A machine that leaves gives back what its picture took, and is
  /// not asked any more.
  virtual void handleAvatar(const std::shared_ptr<VeskoPeer>& peer);

  /// `length` random letters and digits. Requires: `length` at least 1.
  [[nodiscard]] std::string generateRandomStringWithLength(std::int64_t length) const;

  /// The endpoints that the last start could not open, the one whose alert is shown at the moment included. On the
  /// starting thread, also inside `NSApp::runModal`, or on any one after it.
  [[nodiscard]] const std::vector<VeskoFailedEndpoint>& failedEndpoints() const noexcept { return failedEndpoints_; }

  /// The port that the listener got; 0 while there is none.
  [[nodiscard]] std::uint16_t boundTcpPort() const;

  /// The port that pictures are served on; 0 while there is none. A request has 10 seconds and 8 KiB to arrive in, and
  /// of more than 256 connections the slowest makes room.
  [[nodiscard]] std::uint16_t boundHttpPort() const;

  /// The machines known at this moment, by the address that their hellos come from. After each datagram the log tells
  /// of them in one line, by name for 16 KiB and then by number. Any thread.
  [[nodiscard]] PeerTable peers() const;

  /// The one of them with this key; none when there is none. Any thread.
  [[nodiscard]] std::shared_ptr<VeskoPeer> peerWithKey(const std::string& key) const;

  /// The transfers the service keeps, oldest first. Any thread.
  [[nodiscard]] std::vector<std::shared_ptr<VeskoTransfer>> pendingTransfers() const;
  [[nodiscard]] std::vector<std::shared_ptr<VeskoIncomingTransfer>> pendingIncomingTransfers() const;

  /// Lets go of the transfers that have ended. Any thread.
  void pruneFinishedTransfers();

  /// The endpoints, and the loop that pictures are served on; none while there is none. On the starting thread, or on
  /// any one after the start.
  [[nodiscard]] const std::shared_ptr<GCDAsyncUdpSocket>& udpSocket() const noexcept { return udpSocket_; }
  [[nodiscard]] const std::shared_ptr<GCDAsyncSocket>& listenSocket() const noexcept { return listenSocket_; }
  [[nodiscard]] const std::shared_ptr<SelectorEventLoop>& loop() const noexcept { return loop_; }
  [[nodiscard]] const DefaultHTTPServer* server() const noexcept;

  /// The serial queues "broadcast" (discovery), "incoming" (everything received) and "removal" (of storage that would
  /// keep other transfers waiting).
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& broadcastDispatchQueue() const noexcept {
    return broadcastQueue_;
  }
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& incomingDispatchQueue() const noexcept { return incomingQueue_; }
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& removalDispatchQueue() const noexcept { return removalQueue_; }

  /// Called by the service's own sockets: the listener's on the "incoming" queue, the other on "broadcast".
  void socketDidAcceptNewSocket(GCDAsyncSocket& listener, std::shared_ptr<GCDAsyncSocket> newSocket);
  void udpSocketDidReceiveData(std::string_view data, std::string_view address);

 protected:
  /// The transfer for a connection that was accepted and let in, on the "incoming" queue. A host that has a kind of its
  /// own makes that here, by `VeskoIncomingTransfer::make<Kind>`; never none.
  [[nodiscard]] virtual std::shared_ptr<VeskoIncomingTransfer> makeIncomingTransfer(
      std::shared_ptr<GCDAsyncSocket> socket, std::string key, std::shared_ptr<VeskoIncomingTransferDelegate> delegate,
      VeskoIncomingTransferSettings settings);

 private:
  class SocketEvents;
  class DatagramEvents;

  /// Counts the answers of one second.
  struct AnswerBudget {
    std::chrono::steady_clock::time_point start;
    int answers = 0;
  };

  /// What this machine said of itself, and when it was found out.
  struct Signature {
    std::string text;
    std::chrono::steady_clock::time_point asked;
  };

  void sweepStorage() const;
  void openDiscovery();
  void makeAvatarEndpoint();
  void startAvatarEndpoint();
  void startListener();
  void showFailure(const VeskoFailedEndpoint& failure);

  // Discovery, on the "broadcast" queue but for the first three.
  [[nodiscard]] std::string recentSignature(bool mustBeNew);
  void send(const std::string& datagram, const std::string& dest, std::uint16_t port);
  void handleHello(const std::string& sender, DiscoveryHello hello);
  void handleGoodbye(const std::string& sender);
  [[nodiscard]] std::shared_ptr<VeskoPeer> addPeer(const std::string& sender, std::uint16_t port,
                                                   const std::string& signature);
  [[nodiscard]] bool mayAnswer();
  void keepAvatar(const std::shared_ptr<VeskoPeer>& peer, std::string avatar);
  void forgetAvatar(const VeskoPeer& peer, const std::string& key);
  void tellOfAvatarSoon(const std::string& key, const std::shared_ptr<VeskoPeer>& peer);
  void logPeers() const;

  /// On the main queue.
  void tellOfAvatars();

  const std::shared_ptr<DispatchQueue> broadcastQueue_;
  const std::shared_ptr<DispatchQueue> incomingQueue_;
  const std::shared_ptr<DispatchQueue> removalQueue_;
  const std::shared_ptr<IncomingTransferRoom> incomingRoom_;
  std::shared_ptr<SelectorEventLoop> loop_;
  std::unique_ptr<AvatarEndpoint> server_;
  std::shared_ptr<AvatarFetches> avatarFetches_;
  std::shared_ptr<DatagramEvents> datagramEvents_;
  std::shared_ptr<GCDAsyncUdpSocket> udpSocket_;
  std::shared_ptr<SocketEvents> events_;
  std::shared_ptr<GCDAsyncSocket> listenSocket_;
  const std::unique_ptr<OwnAddresses> ownAddresses_;
  AnswerBudget answers_;  // the "broadcast" queue's
  std::vector<VeskoFailedEndpoint> failedEndpoints_;

  mutable std::mutex mutex_;  // guards what follows: the host's threads and the two queues share it
  std::optional<Signature> signature_;
  std::shared_ptr<VeskoPeerDiscoveryDelegate> delegate_;
  PeerTable peers_;
  std::map<std::string, std::weak_ptr<VeskoPeer>> untoldAvatars_;  // of machines in the table
  bool isTellingOfAvatars_ = false;                                // a task for that is on the main queue
  std::shared_ptr<VeskoIncomingTransferDelegate> incomingDelegate_;
  std::shared_ptr<VeskoTransferOutcomeDelegate> incomingOutcomeDelegate_;
  std::shared_ptr<VeskoIncomingTransferGuard> incomingGuard_;
  std::vector<std::shared_ptr<VeskoTransfer>> pendingTransfers_;
  std::vector<std::shared_ptr<VeskoIncomingTransfer>> pendingIncomingTransfers_;
};

}  // namespace vesko
