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

/// Hears what happens to a `GCDAsyncSocket`. Every call comes on the socket's delegate queue, one at a time; any
/// operation of the socket may be used inside it, and what that completes is told after the call has returned.
class GCDAsyncSocketDelegate {
 public:
  virtual ~GCDAsyncSocketDelegate() = default;

  /// A listening socket has accepted `newSocket`, which has no delegate yet and lives on the same delegate queue.
  virtual void socketDidAcceptNewSocket(GCDAsyncSocket& /*socket*/, std::shared_ptr<GCDAsyncSocket> /*newSocket*/) {}

  /// The connection is up. Once.
  virtual void socketDidConnectToHost(GCDAsyncSocket& /*socket*/, const std::string& /*host*/, std::uint16_t /*port*/) {
  }

  /// A read is complete: its bytes or, for a read into a file, the stretch of the file that now holds them.
  virtual void socketDidReadData(GCDAsyncSocket& /*socket*/, const Data& /*data*/, std::int64_t /*tag*/) {}

  /// `length` more bytes have arrived for the read under way, which is not complete yet.
  virtual void socketDidReadPartialDataOfLength(GCDAsyncSocket& /*socket*/, std::uint64_t /*length*/,
                                                std::int64_t /*tag*/) {}

  /// A read has not been completed within its time-out: the answer is how many seconds more it gets; 0 or less fails it
  /// and closes the connection. `elapsed`: seconds since it became the first in line; `bytesDone`: bytes of it so far.
  [[nodiscard]] virtual double socketShouldTimeoutReadWithTag(GCDAsyncSocket& /*socket*/, std::int64_t /*tag*/,
                                                              double /*elapsed*/, std::uint64_t /*bytesDone*/) {
    return 0.0;
  }

  /// All bytes of a write have been handed over.
  virtual void socketDidWriteDataWithTag(GCDAsyncSocket& /*socket*/, std::int64_t /*tag*/) {}

  /// `length` more bytes of the write under way have been handed over; the rest has not yet. 0, where there is a bound
  /// for stalls: none, but the other side has acknowledged more of what was.
  virtual void socketDidWritePartialDataOfLength(GCDAsyncSocket& /*socket*/, std::uint64_t /*length*/,
                                                 std::int64_t /*tag*/) {}

  /// A write has not been completed within its time-out: the answer is how many seconds more it gets; 0 or less fails
  /// it and closes the connection. `elapsed`: seconds; `bytesDone`: bytes of this write handed over so far.
  [[nodiscard]] virtual double socketShouldTimeoutWriteWithTag(GCDAsyncSocket& /*socket*/, std::int64_t /*tag*/,
                                                               double /*elapsed*/, std::uint64_t /*bytesDone*/) {
    return 0.0;
  }

  /// The connection, or the attempt to make it, has ended. Once and last; without an error when this side asked for it
  /// and nothing went wrong. With one, it was reset, so that the other side does not take it for a whole stream either.
  virtual void socketDidDisconnect(GCDAsyncSocket& /*socket*/, const SocketError& /*error*/) {}
};

/// A TCP socket (IPv4) with queued reads and writes, each carrying a tag.
///
/// Operations may be called on any thread and return at once. Reads are served in the order they were issued, and so
/// are writes. All work on the connection is done on the delegate queue; destroying the socket resets it without a
/// word.
class GCDAsyncSocket {
 public:
  virtual ~GCDAsyncSocket() = default;
  GCDAsyncSocket(const GCDAsyncSocket&) = delete;
  GCDAsyncSocket& operator=(const GCDAsyncSocket&) = delete;

  /// A socket that reports to `delegate`, which it does not own, on `delegateQueue`.
  [[nodiscard]] static std::shared_ptr<GCDAsyncSocket> make(std::weak_ptr<GCDAsyncSocketDelegate> delegate,
                                                            std::shared_ptr<DispatchQueue> delegateQueue);

  /// Replaces the delegate. Call it on the delegate queue, or before the socket is connected.
  virtual void setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate) = 0;

  /// Starts connecting to `host`, an IPv4 address in dotted-decimal form. `timeout`: seconds, after which it fails with
  /// `std::errc::timed_out`; negative: the system's own time. False, with `error` set, when the request cannot even be
  /// started; nothing is reported to the delegate then.
  [[nodiscard]] virtual bool connectToHost(const std::string& host, std::uint16_t port, double timeout,
                                           SocketError& error) = 0;

  /// Bounds how long written bytes may be outstanding without the other side acknowledging any: after so many seconds
  /// the connection closes with `std::errc::timed_out`. Negative, the default: no bound while there is something to
  /// write. Asked about once a second, so it may take that much longer. Before the connection is made, or on the
  /// delegate queue.
  virtual void setStallTimeout(double seconds) = 0;

  /// Listens on `port` of every interface; 0 lets the system choose one. False, with `error` set, when it cannot. While
  /// that fails, for want of a descriptor or memory, say, accepting pauses and goes on by itself. What is accepted is
  /// reset by default: only `disconnect` ends it in good order, and the death of the process does not.
  [[nodiscard]] virtual bool acceptOnPort(std::uint16_t port, SocketError& error) = 0;

  /// Queues a read of exactly `length` bytes (at least 1) into memory. `timeout`: seconds from the moment that the read
  /// is the first in line; negative: none. Its expiry asks the delegate first; otherwise the connection closes with
  /// `std::errc::timed_out`.
  virtual void readDataToLength(std::uint64_t length, double timeout, std::int64_t tag) = 0;

  /// Queues a read of exactly `length` bytes that are written to `destination`, at its offset, as they come.
  virtual void readDataToLength(std::uint64_t length, std::shared_ptr<FileHandle> destination, double timeout,
                                std::int64_t tag) = 0;

  /// Queues a read into memory of what arrives next: 1 byte at least, `maximumLength` (at least 1) at most, and never
  /// beyond the first `last`. Whether it ended with that byte is seen from the bytes. `timeout` as above, so a reader
  /// that asks again after each read grants it anew for every byte that comes alone.
  virtual void readDataToByte(char last, std::uint64_t maximumLength, double timeout, std::int64_t tag) = 0;

  /// Queues `data` (at least 1 byte) for writing. A write is complete when its bytes have been handed over: to the
  /// system, or to a buffer that gathers small writes while the system keeps accepting them and is flushed before the
  /// socket waits for anything. `timeout`: seconds, as above; its expiry asks the delegate first.
  virtual void writeData(Data data, double timeout, std::int64_t tag) = 0;

  /// Closes the connection in good order and forgets everything queued.
  virtual void disconnect() = 0;

  /// Closes the connection by a reset (RFC 9293, 3.10.7.4), so that the other side cannot take it for a whole stream.
  virtual void disconnectWithReset() = 0;

  /// Ends the connection once every queued write is complete: says that nothing follows (half-close) and waits until
  /// the other side has acknowledged everything and closed in good order; nothing else ends without an error. The error
  /// is `std::errc::timed_out` when bytes are outstanding and none is acknowledged for `endSeconds`, and
  /// `SocketErrc::unconfirmed` when all of them are and the other side has not closed for `endSeconds` since.
  virtual void disconnectAfterWriting() = 0;

  /// The other side's address in dotted-decimal form; empty while there is none. On the delegate queue only.
  [[nodiscard]] virtual std::string connectedHost() const = 0;

  /// The local port; 0 while there is none.
  [[nodiscard]] virtual std::uint16_t localPort() const = 0;

  /// True when bytes have arrived that nobody has asked the system for yet. On the delegate queue only.
  [[nodiscard]] virtual bool hasUnread() const = 0;

  /// Seconds; longer than the minute for which a receiver may leave a question to its user open.
  static constexpr double endSeconds = 90.0;

 protected:
  GCDAsyncSocket() = default;
};

}  // namespace vesko
