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

/// Is told which peers come and go.
///
/// Calls come on the service's serial queue "broadcast", after the peer table has been changed. Only the call about an
/// avatar that has arrived comes on the main queue (`MainQueue`); a host that never runs or drains that queue does not
/// get it. Any operation of the service may be used inside a call. A call that takes long delays discovery.
///
/// Ignored, and never told here: datagrams that are empty, of an unknown type or too short for their port; hellos that
/// are not UTF-8; everything from an address of this machine; and everything from 0.0.0.0/8 (RFC 6890), because no
/// answer can be sent there.
class VeskoPeerDiscoveryDelegate {
 public:
  virtual ~VeskoPeerDiscoveryDelegate() = default;

  /// A peer that was not in the table has said hello. `key`: the IPv4 address that the hello came from.
  virtual void peerDidAppear(const std::string& /*key*/, const std::shared_ptr<VeskoPeer>& /*peer*/) {}

  /// A peer in the table has said hello again: its record, which stays the same object, has been updated. Or, on the
  /// main queue, its avatar has arrived; this call is left out when the peer has said goodbye in the meantime.
  virtual void peerDidUpdate(const std::string& /*key*/, const std::shared_ptr<VeskoPeer>& /*peer*/) {}

  /// A peer has said goodbye and was removed from the table. A peer that just stops answering stays in the table.
  virtual void peerDidDisappear(const std::string& /*key*/) {}
};

/// A port that the service could not open.
struct VeskoFailedEndpoint {
  std::string endpoint;   ///< "udp" (discovery), "http" (avatars) or "tcp" (transfers)
  std::string message;    ///< the text of the alert that the user was shown
  std::error_code error;  ///< the code of the failed system call
};

/// The service that a host creates to take part. It keeps a table of the peers and their avatars, serves the avatar of
/// this machine's user, accepts incoming transfers and keeps the outgoing ones that it starts.
///
/// Create it with `std::make_shared`. Set its fields and start it on one thread; the operations marked "any thread" may
/// then be called anywhere. The usual order:
///
///     const auto server = std::make_shared<VeskoServer>();
///     server->downloadsFolder = "/srv/incoming";         // fields: before the start
///     server->setDelegate(peerObserver);                 // observers: at any time
///     server->setIncomingDelegate(progressObserver);
///     server->setIncomingOutcomeDelegate(outcomeObserver);
///     server->startServer();
///     if (!server->failedEndpoints().empty()) { ... }    // some ports are held by another program
///     server->sayHello();                                // peers answer: peerDidAppear for each
///
///     const auto transfer = std::make_shared<VeskoTransfer>(VeskoTransfer::itemsForPaths(paths), peer,
///                                                           DispatchQueue::serial("sending"));
///     transfer->setOutcomeDelegate(outcomeObserver);
///     server->startTransfer(transfer);                   // transferDidEnd tells how it ended
///
///     server->sayGoodbye();                              // before the host ends
///
/// There is no stop operation. Destroying the service closes its ports and releases the transfers it keeps. A transfer
/// that has no other owner then ends at once and reports no outcome.
class VeskoServer : public std::enable_shared_from_this<VeskoServer> {
 public:
  /// The UDP port of discovery and the TCP port of transfers, unless the constructor is given others.
  static constexpr std::uint16_t defaultPort = 4644;

  /// The table holds at most this many peers; hellos of further ones are ignored. Without a bound, forged datagrams
  /// could fill the memory.
  static constexpr std::size_t maximumPeers = 65'536;

  /// At most this many hellos are answered within a second. That is enough for a large network in which all machines
  /// start at once. It also bounds how many datagrams this machine sends to addresses that somebody else has forged.
  static constexpr int maximumAnswers = 1'000;

  /// Peers by their keys; see `VeskoPeer::key`.
  using PeerTable = std::map<std::string, std::shared_ptr<VeskoPeer>>;

  /// Uses the usual ports: 4644 for discovery and transfers, 4645 for avatars. Neither constructor opens a port, but
  /// both make the queues and their threads, and throw `std::system_error` when the system has no thread or no
  /// descriptors left for them.
  VeskoServer();

  /// Uses `udpPort` for discovery, `tcpPort` for transfers and `tcpPort` + 1 for avatars; after 65535 there is no port,
  /// and no avatar is served. 0 lets the system choose, for avatars too. `clock`: the time of the queues "broadcast"
  /// and "incoming"; none: the machine's clock.
  VeskoServer(std::uint16_t udpPort, std::uint16_t tcpPort, std::shared_ptr<Clock> clock = nullptr);
  virtual ~VeskoServer();
  VeskoServer(const VeskoServer&) = delete;
  VeskoServer& operator=(const VeskoServer&) = delete;

  /// The TCP port on which transfers are accepted; 0 lets the system choose one, which `boundTcpPort` tells. Set it
  /// before `startServer`. The port of avatars follows the constructor's argument, not this field.
  std::uint16_t localTcpPort;

  /// The UDP port on which hellos are received. Hellos and goodbyes are also sent to this port of the others, unless
  /// the call names another. Set it before `startServer`; 0 is then replaced by the port that the system chose.
  ///
  /// A hello carries this port where it, or the port the hello is sent to, is not `defaultUdpPort`. Peers use the
  /// number they are told for everything: they answer to that UDP port and connect transfers to the TCP port of the
  /// same number. So a host should set `localTcpPort` to the same number.
  std::uint16_t localUdpPort;

  /// The well-known TCP port of transfers, for hosts to compare with; the library does not use it.
  std::uint16_t defaultTcpPort = defaultPort;

  /// The well-known UDP port of discovery. Hellos and goodbyes to everybody are sent to it in addition to the port of
  /// the call. Set it before `startServer`.
  std::uint16_t defaultUdpPort = defaultPort;

  /// The folder that incoming items are stored in; empty: the current user's downloads folder. Set it before
  /// `startServer`.
  ///
  /// Nothing in it is ever replaced. Where a name is taken, a number from 2 on is put in parentheses before the
  /// extension: "photo (2).jpg". A name that becomes longer than 255 bytes by that loses characters before the
  /// parentheses. Several items that arrive at the top level of one transfer are put into a new folder "Received by
  /// Vesko at" plus the time. So is a single item that is named like the temporary storage folders of this library
  /// (".VeskoTransferIntermediateStorage" and 46 digits and letters), since the next start would take it for a leftover
  /// and delete it.
  std::string downloadsFolder;

  /// When an incoming transfer fails, keep the elements that had arrived completely; otherwise everything it brought is
  /// removed. Set it before `startServer`.
  bool keepPartial = false;

  /// How many bytes one incoming transfer may announce, and may bring, at most. A larger one fails with the reason
  /// "limit". Set it before `startServer`.
  std::uint64_t maximumIncomingSize = VeskoIncomingTransferSettings::unlimited;

  /// How many incoming transfers may be alive at once, at least 1. When one more connection is accepted, the transfer
  /// whose sender has been silent for longest fails with the reason "limit": connections that send nothing cannot keep
  /// others out. By default an eighth of the descriptors that the process may open, at least 1 and at most 512. Set it
  /// before `startServer`.
  std::size_t maximumIncomingTransfers;

  /// The host's user interface, for alerts about ports that cannot be opened; without one the alerts go to standard
  /// error. Set it before `startServer`.
  std::shared_ptr<NSApp> application;

  /// Sets the observer of the peer table; none removes it. Any thread. This and the next three setters hold the new
  /// object strongly and release the old one, whose destructor may use the service. A call to the old one that is
  /// running on another thread may end only after the setter has returned.
  void setDelegate(std::shared_ptr<VeskoPeerDiscoveryDelegate> delegate);

  [[nodiscard]] std::shared_ptr<VeskoPeerDiscoveryDelegate> delegate() const;

  /// The observers of incoming transfers: their progress and their outcome. Any thread. Each transfer keeps those that
  /// were set when its connection was accepted.
  void setIncomingDelegate(std::shared_ptr<VeskoIncomingTransferDelegate> delegate);
  [[nodiscard]] std::shared_ptr<VeskoIncomingTransferDelegate> incomingDelegate() const;
  void setIncomingOutcomeDelegate(std::shared_ptr<VeskoTransferOutcomeDelegate> delegate);

  /// The object that decides which incoming connections and transfers are let in; without one all are. Any thread. Each
  /// transfer keeps the one that was set when its connection was accepted.
  void setIncomingGuard(std::shared_ptr<VeskoIncomingTransferGuard> guard);

  /// Removes the storage folders that ended processes have left in the downloads folder, then opens the ports of
  /// discovery, avatars and transfers, in this order. The removal goes on in the background when it takes longer than a
  /// second.
  ///
  /// A port that cannot be opened is added to `failedEndpoints` and shown to the user: by `application`, which is then
  /// asked to terminate, or on standard error. The start goes on with the next port. A later call tries again those
  /// that are not open. Throws `std::system_error` when the system has no thread left for the HTTP loop; ends the
  /// process when the system does not let it broadcast.
  virtual void startServer();

  /// Opens the port of discovery alone, in place of `startServer`, for a program that only looks for peers: it sees
  /// them and fetches their avatars, but accepts no transfers and serves no avatar.
  void startDiscovery();

  /// Sends a hello. Without `dest` it is broadcast on the networks of all interfaces of this machine, and those who
  /// receive it answer with a hello. With `dest`, an IPv4 address, it goes to that address alone and is not answered.
  /// It is sent to `port`, by default `localUdpPort`, and a broadcast also to `defaultUdpPort`.
  ///
  /// Any thread, once the service has started. Returns at once and reports no failure. Nothing is sent when the port of
  /// discovery is not open. A datagram that the system has not taken within 5 seconds is dropped.
  virtual void sayHello();
  virtual void sayHello(const std::string& dest);
  virtual void sayHello(const std::string& dest, std::uint16_t port);

  /// Sends a goodbye, in the same three forms. Peers that receive it remove this machine from their tables.
  virtual void sayGoodbye();
  virtual void sayGoodbye(const std::string& dest);
  virtual void sayGoodbye(const std::string& dest, std::uint16_t port);

  /// The datagrams that `sayHello` and `sayGoodbye` send; an empty `dest` means a broadcast. A hello to one address,
  /// such as an answer, may carry a signature that is up to a second old: a new one takes reading files, and many peers
  /// may ask at once. Any thread.
  [[nodiscard]] virtual std::string createHelloPacket(const std::string& dest, std::uint16_t port);
  [[nodiscard]] virtual std::string createGoodbyePacket(const std::string& dest, std::uint16_t port);

  /// How this machine describes itself to peers: "FULL NAME at COMPUTER NAME [Vesko] (Macintosh)", with the login name
  /// where the user has no full name. A hello carries at most the first 4,096 bytes. Any thread.
  [[nodiscard]] virtual std::string getSystemSignature();

  /// Starts `transfer` and keeps it alive until `pruneFinishedTransfers` is called after its end. Any thread. See
  /// `VeskoTransfer::start`.
  virtual void startTransfer(const std::shared_ptr<VeskoTransfer>& transfer);

  /// True when `sender` is, character for character, the IPv4 address of an interface of this machine that is up,
  /// running and not loopback. Any thread.
  [[nodiscard]] virtual bool isLocalPeer(const std::string& sender);

  /// The broadcast address of each IPv4 address of this machine, in the order of the system. Interfaces that are down,
  /// loopback or without a netmask are left out. Any thread.
  [[nodiscard]] virtual std::vector<std::string> findBroadcastAddress();

  /// Fetches the avatar of `peer` by HTTP from the port after its service port; does nothing when it was asked for
  /// before. On the "broadcast" queue only. The service calls this itself after each hello.
  ///
  /// The record says "loading" until the avatar has arrived. It goes on saying so when no PNG of at most 4 MiB and
  /// 4,096 pixels in each direction arrives within 10 seconds, of which 2 are for connecting. Eight avatars are fetched
  /// at once, further ones wait. An avatar that is too large for the memory bound is not kept: all in the table
  /// together take at most 64 MiB as data URLs, and one of them at most an eighth of what is left of that. A goodbye
  /// cancels the fetch and makes the memory available again.
  virtual void handleAvatar(const std::shared_ptr<VeskoPeer>& peer);

  /// `length` random letters and digits. Requires: `length` at least 1.
  [[nodiscard]] std::string generateRandomStringWithLength(std::int64_t length) const;

  /// The ports that the last start could not open, in the order they failed; the one whose alert is being shown is
  /// already among them. On the thread that starts the service, also inside `NSApp::runModal`, or on any thread after
  /// the start.
  [[nodiscard]] const std::vector<VeskoFailedEndpoint>& failedEndpoints() const noexcept { return failedEndpoints_; }

  /// The port on which transfers are accepted; 0 while there is none. On the thread that starts the service, or on any
  /// thread after the start.
  [[nodiscard]] std::uint16_t boundTcpPort() const;

  /// The port on which the avatar is served; 0 while there is none. Any thread. A request has to arrive within 10
  /// seconds and in at most 8 KiB. When there are more than 256 connections, the one that has been at its request for
  /// longest is closed.
  [[nodiscard]] std::uint16_t boundHttpPort() const;

  /// A copy of the peer table, keyed by the addresses that the hellos came from; the records are shared. Any thread.
  /// After each datagram the service also writes the table to the log as one line; peers beyond 16 KiB of text are only
  /// counted there.
  [[nodiscard]] PeerTable peers() const;

  /// The peer with this key; none when it is not in the table. Any thread.
  [[nodiscard]] std::shared_ptr<VeskoPeer> peerWithKey(const std::string& key) const;

  /// The transfers that the service keeps, oldest first: those under way and those that have ended and were not pruned
  /// yet. Any thread.
  [[nodiscard]] std::vector<std::shared_ptr<VeskoTransfer>> pendingTransfers() const;
  [[nodiscard]] std::vector<std::shared_ptr<VeskoIncomingTransfer>> pendingIncomingTransfers() const;

  /// Releases all transfers that have ended, outgoing and incoming. Any thread. The service never does that by itself,
  /// so a host that runs for long has to: after each outcome, for example.
  void pruneFinishedTransfers();

  /// The sockets of discovery and of the transfer listener, the loop and the server of HTTP; none while not open. On
  /// the thread that starts the service, or on any thread after the start. The sockets belong to the service: do not
  /// close them.
  [[nodiscard]] const std::shared_ptr<GCDAsyncUdpSocket>& udpSocket() const noexcept { return udpSocket_; }
  [[nodiscard]] const std::shared_ptr<GCDAsyncSocket>& listenSocket() const noexcept { return listenSocket_; }
  [[nodiscard]] const std::shared_ptr<SelectorEventLoop>& loop() const noexcept { return loop_; }
  [[nodiscard]] const DefaultHTTPServer* server() const noexcept;

  /// The serial queues of the service: "broadcast" for discovery, "incoming" for everything received, and "removal" for
  /// deleting what failed transfers stored, where that takes long enough to delay other transfers. Any thread.
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& broadcastDispatchQueue() const noexcept {
    return broadcastQueue_;
  }
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& incomingDispatchQueue() const noexcept { return incomingQueue_; }
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& removalDispatchQueue() const noexcept { return removalQueue_; }

  /// Called by the service's own sockets, the first on the "incoming" queue, the second on "broadcast". Not for hosts.
  void socketDidAcceptNewSocket(GCDAsyncSocket& listener, std::shared_ptr<GCDAsyncSocket> newSocket);
  void udpSocketDidReceiveData(std::string_view data, std::string_view address);

 protected:
  /// Makes the transfer for a connection that was accepted and let in; called on the "incoming" queue. A host that
  /// derives from `VeskoIncomingTransfer` overrides this and returns `VeskoIncomingTransfer::make<Kind>(...)`, never
  /// none.
  [[nodiscard]] virtual std::shared_ptr<VeskoIncomingTransfer> makeIncomingTransfer(
      std::shared_ptr<GCDAsyncSocket> socket, std::string key, std::shared_ptr<VeskoIncomingTransferDelegate> delegate,
      VeskoIncomingTransferSettings settings);

 private:
  class SocketEvents;
  class DatagramEvents;

  /// How many hellos were answered in the second that began at `start`.
  struct AnswerBudget {
    std::chrono::steady_clock::time_point start;
    int answers = 0;
  };

  /// The signature of this machine, and when it was found out.
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

  /// Discovery. The first two run on any thread, the others on the "broadcast" queue.
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
  AnswerBudget answers_;  // on the "broadcast" queue only
  std::vector<VeskoFailedEndpoint> failedEndpoints_;

  mutable std::mutex mutex_;  // guards what follows, which the two queues and the host's threads share
  std::optional<Signature> signature_;
  std::shared_ptr<VeskoPeerDiscoveryDelegate> delegate_;
  PeerTable peers_;
  std::map<std::string, std::weak_ptr<VeskoPeer>> untoldAvatars_;  // of peers in the table; the host is yet to be told
  bool isTellingOfAvatars_ = false;                                // a task that tells it waits on the main queue
  std::shared_ptr<VeskoIncomingTransferDelegate> incomingDelegate_;
  std::shared_ptr<VeskoTransferOutcomeDelegate> incomingOutcomeDelegate_;
  std::shared_ptr<VeskoIncomingTransferGuard> incomingGuard_;
  std::vector<std::shared_ptr<VeskoTransfer>> pendingTransfers_;
  std::vector<std::shared_ptr<VeskoIncomingTransfer>> pendingIncomingTransfers_;
};

}  // namespace vesko
