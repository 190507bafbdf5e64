#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace vesko {

class DispatchQueue;
class GCDAsyncUdpSocket;

/// Hears what happens to a `GCDAsyncUdpSocket`. Every call comes on the socket's delegate queue, one at a time; any
/// operation of the socket may be used inside it.
class GCDAsyncUdpSocketDelegate {
 public:
  virtual ~GCDAsyncUdpSocketDelegate() = default;

  /// A datagram has arrived. `data`: its bytes, possibly none. `address`: where it came from, in the system's form; see
  /// `GCDAsyncUdpSocket::getHost`. Both are valid during the call only.
  virtual void udpSocketDidReceiveData(GCDAsyncUdpSocket& /*socket*/, std::string_view /*data*/,
                                       std::string_view /*address*/) {}

  /// A datagram has not been sent, for the reason given; `std::errc::timed_out` after its time-out. Nobody is told of
  /// those that were sent, as that says nothing about their arrival.
  virtual void udpSocketDidNotSendDataWithTag(GCDAsyncUdpSocket& /*socket*/, std::int64_t /*tag*/,
                                              const std::error_code& /*error*/) {}
};

/// A UDP socket (RFC 768) that queues what it sends.
///
/// Operations may be called on any thread and return at once, but for the set-up (up to `beginReceiving`), which is one
/// thread's. Datagrams arrive on the delegate queue; destroying the socket closes it.
class GCDAsyncUdpSocket {
 public:
  virtual ~GCDAsyncUdpSocket() = default;
  GCDAsyncUdpSocket(const GCDAsyncUdpSocket&) = delete;
  GCDAsyncUdpSocket& operator=(const GCDAsyncUdpSocket&) = delete;

  /// A socket that reports to `delegate`, which it does not own, on `delegateQueue`.
  [[nodiscard]] static std::shared_ptr<GCDAsyncUdpSocket> make(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                                                               std::shared_ptr<DispatchQueue> delegateQueue);

  /// Whether IPv6 is used besides IPv4. Only IPv4 is there: true changes nothing.
  virtual void setIPv6Enabled(bool isEnabled) = 0;

  /// Allows sending to broadcast addresses, or forbids it. False, with `error` set, when the system refuses that. Where
  /// the system has no socket to give, the answer is true and `bindToPort` tells of the shortage.
  [[nodiscard]] virtual bool enableBroadcast(bool isEnabled, std::error_code& error) = 0;

  /// Binds `port` of every interface, exclusively; 0 lets the system choose one. False, with `error` set, when it
  /// cannot.
  [[nodiscard]] virtual bool bindToPort(std::uint16_t port, std::error_code& error) = 0;

  /// Delivers datagrams to the delegate from now on. False, with `error` set, when it cannot.
  [[nodiscard]] virtual bool beginReceiving(std::error_code& error) = 0;

  /// Sends one datagram to `host`, an IPv4 address in dotted-decimal form that may be a broadcast address: at once
  /// where the system takes it, else, in the order given, as soon as it does. `timeout`: seconds that it may wait;
  /// negative: no limit. The delegate is told `std::errc::invalid_argument` of anything else, `not_connected` while the
  /// socket is not bound and `no_buffer_space` when thousands wait already; after `close` nothing is sent or told.
  virtual void sendData(std::string data, const std::string& host, std::uint16_t port, double timeout,
                        std::int64_t tag) = 0;

  /// Closes the socket and drops what has not been sent. No delegate call comes afterwards on the delegate queue.
  virtual void close() = 0;

  /// The local port; 0 while there is none.
  [[nodiscard]] virtual std::uint16_t localPort() const = 0;

  /// Decodes a sender's address: dotted-decimal host and port. False when it is not one of IPv4.
  [[nodiscard]] static bool getHost(std::string& host, std::uint16_t& port, std::string_view address);

 protected:
  GCDAsyncUdpSocket() = default;
};

}  // namespace vesko
