#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Platform/files/Data.h"
#include "Platform/sockets/SocketError.h"

namespace vesko {

class DispatchQueue;
class FileHandle;
class GCDAsyncSocket;

/// Is told what happens to a `GCDAsyncSocket`. Every call comes on the socket's delegate queue, one at a time. Any
/// operation of the socket may be used inside a call; what completes because of it is told after the call has returned.
class GCDAsyncSocketDelegate {
 public:
  virtual ~GCDAsyncSocketDelegate() = default;

  /// A listening socket has accepted a connection. `newSocket` uses the same delegate queue and has no delegate yet;
  /// when nobody keeps it, the connection is reset.
  virtual void socketDidAcceptNewSocket(GCDAsyncSocket& /*socket*/, std::shared_ptr<GCDAsyncSocket> /*newSocket*/) {}

  /// The connection is established. Called once.
  virtual void socketDidConnectToHost(GCDAsyncSocket& /*socket*/, const std::string& /*host*/, std::uint16_t /*port*/) {
  }

  /// A read is complete. `data`: its bytes or, for a read into a file, the stretch of the file that now holds them.
  virtual void socketDidReadData(GCDAsyncSocket& /*socket*/, const Data& /*data*/, std::int64_t /*tag*/) {}

  /// `length` more bytes of the first read have arrived, and it is not complete yet.
  virtual void socketDidReadPartialDataOfLength(GCDAsyncSocket& /*socket*/, std::uint64_t /*length*/,
                                                std::int64_t /*tag*/) {}

  /// The first read was not complete within its time-out. Returns how many seconds more it gets; with 0 or less it
  /// fails and the connection is closed. `elapsed`: seconds since the read became the first and had to wait.
  /// `bytesDone`: bytes of it that have arrived.
  [[nodiscard]] virtual double socketShouldTimeoutReadWithTag(GCDAsyncSocket& /*socket*/, std::int64_t /*tag*/,
                                                              double /*elapsed*/, std::uint64_t /*bytesDone*/) {
    return 0.0;
  }

  /// A write is complete: all its bytes were handed over; see `GCDAsyncSocket::writeData`.
  virtual void socketDidWriteDataWithTag(GCDAsyncSocket& /*socket*/, std::int64_t /*tag*/) {}

  /// `length` more bytes of the first write were handed over, and it is not complete yet. A length of 0 comes only with
  /// a stall time-out: nothing more could be handed over, but the other side has acknowledged bytes.
  virtual void socketDidWritePartialDataOfLength(GCDAsyncSocket& /*socket*/, std::uint64_t /*length*/,
                                                 std::int64_t /*tag*/) {}

  /// The first write was not complete within its time-out. Returns how many seconds more it gets; with 0 or less it
  /// fails and the connection is closed. `elapsed`: seconds, as for reads. `bytesDone`: bytes of it that were handed
  /// over.
  [[nodiscard]] virtual double socketShouldTimeoutWriteWithTag(GCDAsyncSocket& /*socket*/, std::int64_t /*tag*/,
                                                               double /*elapsed*/, std::uint64_t /*bytesDone*/) {
    return 0.0;
  }

  /// The connection, or the attempt to connect, has ended. The last call, once. No error: this side asked for it and
  /// nothing went wrong. With an error the connection was reset, so that the other side does not take what it received
  /// for a complete stream.
  virtual void socketDidDisconnect(GCDAsyncSocket& /*socket*/, const SocketError& /*error*/) {}
};

/// A TCP socket (IPv4) with queued reads and writes, each marked by a tag.
///
/// Operations may be called on any thread and return at once. Reads are served in the order they were issued; so are
/// writes. Nothing is read from the connection unless a read is queued. Without one, TCP's flow control holds the
/// sender up, and the end of the connection is noticed only when a write fails.
///
/// All work is done on the delegate queue. Destroying the socket resets the connection without any call to the
/// delegate.
class GCDAsyncSocket {
 public:
  virtual ~GCDAsyncSocket() = default;
  GCDAsyncSocket(const GCDAsyncSocket&) = delete;
  GCDAsyncSocket& operator=(const GCDAsyncSocket&) = delete;

  /// A socket that calls `delegate`, which it does not own, on the serial queue `delegateQueue`.
  [[nodiscard]] static std::shared_ptr<GCDAsyncSocket> make(std::weak_ptr<GCDAsyncSocketDelegate> delegate,
                                                            std::shared_ptr<DispatchQueue> delegateQueue);

  /// Replaces the delegate. On the delegate queue, or before the socket is connected.
  virtual void setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate) = 0;

  /// Starts connecting to `host`, an IPv4 address. `timeout`: seconds until it fails with `std::errc::timed_out`;
  /// negative: as many as the system takes. False, with `error` set, when the attempt cannot even be started; the
  /// delegate is then not called.
  [[nodiscard]] virtual bool connectToHost(const std::string& host, std::uint16_t port, double timeout,
                                           SocketError& error) = 0;

  /// Limits how long the other side may acknowledge none of the written bytes while more wait to be written: the
  /// connection then closes with `std::errc::timed_out`. In seconds; negative, the default: no limit. The system is
  /// asked about once a second, so it may take a second longer. Before connecting, or on the delegate queue.
  virtual void setStallTimeout(double seconds) = 0;

  /// Listens on `port` of every interface; 0 lets the system choose one. False, with `error` set, when that fails. When
  /// accepting fails for lack of descriptors or memory, it pauses and goes on by itself.
  ///
  /// An accepted connection is closed in good order only by `disconnect` and `disconnectAfterWriting`. Everything else,
  /// the end of the process included, resets it: the sender takes an orderly close for the confirmation that everything
  /// was stored.
  [[nodiscard]] virtual bool acceptOnPort(std::uint16_t port, SocketError& error) = 0;

  /// Queues a read of exactly `length` bytes (at least 1) into memory. `timeout`: seconds from the moment when the read
  /// is the first and has to wait; negative: none. When it expires the delegate is asked for more time; without that
  /// the connection closes with `std::errc::timed_out`.
  virtual void readDataToLength(std::uint64_t length, double timeout, std::int64_t tag) = 0;

  /// The same, but the bytes are written to `destination`, at its offset, as they arrive. The socket shares the
  /// ownership of the file until the read is complete.
  virtual void readDataToLength(std::uint64_t length, std::shared_ptr<FileHandle> destination, double timeout,
                                std::int64_t tag) = 0;

  /// Queues a read into memory of what arrives next: at least 1 byte, at most `maximumLength` (at least 1), and nothing
  /// after the first byte equal to `last`. The bytes tell whether `last` was reached. `timeout` as above, for this
  /// read alone: a caller that issues reads until `last` comes grants it again for each of them.
  virtual void readDataToByte(char last, std::uint64_t maximumLength, double timeout, std::int64_t tag) = 0;

  /// Queues `data` (at least 1 byte) for writing. The write is complete when its bytes were handed over: to the system,
  /// or to a buffer that gathers small writes as long as the system accepts them, and that is written out before the
  /// socket waits for anything. `timeout`: seconds as for reads; the delegate is asked likewise.
  virtual void writeData(Data data, double timeout, std::int64_t tag) = 0;

  /// Closes the connection in good order and drops everything that is queued.
  virtual void disconnect() = 0;

  /// Resets the connection (RFC 9293, 3.10.7.4), so that the other side cannot take what it received for a complete
  /// stream.
  virtual void disconnectWithReset() = 0;

  /// Ends the connection when all queued writes are complete: closes the sending direction (half-close) and waits until
  /// the other side has acknowledged everything and closed in good order. Only that ends without an error.
  ///
  /// The error is `std::errc::timed_out` when bytes are outstanding and none was acknowledged for `endSeconds`, and
  /// `SocketErrc::unconfirmed` when all were acknowledged and the other side has not closed for `endSeconds` after
  /// that.
  virtual void disconnectAfterWriting() = 0;

  /// The IPv4 address of the other side; empty while there is none. On the delegate queue only.
  [[nodiscard]] virtual std::string connectedHost() const = 0;

  /// The local port; 0 while there is none. Any thread.
  [[nodiscard]] virtual std::uint16_t localPort() const = 0;

  /// True when the system holds bytes that have arrived and were not read. On the delegate queue only.
  [[nodiscard]] virtual bool hasUnread() const = 0;

  /// Seconds; longer than the minute for which a receiver may wait for its user's decision.
  static constexpr double endSeconds = 90.0;

 protected:
  GCDAsyncSocket() = default;
};

}  // namespace vesko
