#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace vesko {

class DispatchQueue;
class GCDAsyncUdpSocket;

/// Is told what happens to a `GCDAsyncUdpSocket`. Every call comes on the socket's delegate queue, one at a time. Any
/// operation of the socket may be used inside a call.
class GCDAsyncUdpSocketDelegate {
 public:
  virtual ~GCDAsyncUdpSocketDelegate() = default;

  /// A datagram was received. `data`: its bytes, possibly none. `address`: the sender's address in the system's form,
  /// for `GCDAsyncUdpSocket::getHost`. Both are valid during the call only.
  virtual void udpSocketDidReceiveData(GCDAsyncUdpSocket& /*socket*/, std::string_view /*data*/,
                                       std::string_view /*address*/) {}

  /// A datagram was not sent, for this error; `std::errc::timed_out` when it waited for its time-out. There is no call
  /// for datagrams that were sent, since that says nothing about their arrival.
  virtual void udpSocketDidNotSendDataWithTag(GCDAsyncUdpSocket& /*socket*/, std::int64_t /*tag*/,
                                              const std::error_code& /*error*/) {}
};

/// A UDP socket (RFC 768, IPv4) with a queue of datagrams to send.
///
/// Operations may be called on any thread and return at once. Only the set-up, up to `beginReceiving`, belongs on one
/// thread. Datagrams are received on the delegate queue. Destroying the socket closes it.
class GCDAsyncUdpSocket {
 public:
  virtual ~GCDAsyncUdpSocket() = default;
  GCDAsyncUdpSocket(const GCDAsyncUdpSocket&) = delete;
  GCDAsyncUdpSocket& operator=(const GCDAsyncUdpSocket&) = delete;

  /// A socket that calls `delegate`, which it does not own, on the serial queue `delegateQueue`.
  [[nodiscard]] static std::shared_ptr<GCDAsyncUdpSocket> make(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                                                               std::shared_ptr<DispatchQueue> delegateQueue);

  /// Whether IPv6 is used besides IPv4. IPv6 is not implemented: true changes nothing.
  virtual void setIPv6Enabled(bool isEnabled) = 0;

  /// Allows or forbids sending to broadcast addresses. False, with `error` set, when the system refuses. When the
  /// system has no descriptor left for the socket, this returns true and `bindToPort` fails instead.
  [[nodiscard]] virtual bool enableBroadcast(bool isEnabled, std::error_code& error) = 0;

  /// Binds `port` of every interface, exclusively; 0 lets the system choose one. False, with `error` set, when that
  /// fails: `std::errc::address_in_use` when another program holds the port.
  [[nodiscard]] virtual bool bindToPort(std::uint16_t port, std::error_code& error) = 0;

  /// Passes received datagrams to the delegate from now on. False, with `error` set, when the socket is not bound.
  [[nodiscard]] virtual bool beginReceiving(std::error_code& error) = 0;

  /// Sends one datagram to `host`, an IPv4 address that may be a broadcast address. It is sent at once if the system
  /// takes it, otherwise as soon as the system does, in the order of the calls. `timeout`: seconds that it may wait;
  /// negative: no limit.
  ///
  /// The delegate is told the error: `std::errc::invalid_argument` when `host` is no IPv4 address, `not_connected` when
  /// the socket is not bound, `no_buffer_space` when thousands of datagrams wait already. After `close` nothing is sent
  /// or told.
  virtual void sendData(std::string data, const std::string& host, std::uint16_t port, double timeout,
                        std::int64_t tag) = 0;

  /// Closes the socket and drops what was not sent. On the delegate queue: no call to the delegate comes after it.
  virtual void close() = 0;

  /// The local port; 0 while there is none.
  [[nodiscard]] virtual std::uint16_t localPort() const = 0;

  /// Decodes an address from `udpSocketDidReceiveData`. False when it is not an IPv4 address. Any thread.
  [[nodiscard]] static bool getHost(std::string& host, std::uint16_t& port, std::string_view address);

 protected:
  GCDAsyncUdpSocket() = default;
};

}  // namespace vesko
