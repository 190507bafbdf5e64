#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/files/FileDescriptor.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchSource.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "Platform/sockets/SocketCalls.h"
#include "Platform/sockets/StreamReader.h"
#include "Platform/sockets/StreamWriter.h"

namespace vesko {

class AcceptLoop;

/// `GCDAsyncSocket` on a socket of the system.
///
/// All work is done by one loop on the delegate queue: it serves reads and writes and calls the delegate, until neither
/// can go on, then writes out the buffer of small writes, and only then waits for the system. All members are used on
/// that queue.
///
/// States, and what each waits for:
///
///     fresh       `connectToHost` or `acceptOnPort`
///     listening   connections, in `acceptLoop_`; until closed
///     connecting  the connection, or the alarm for the time-out; then connected
///     connected   readiness for queued reads and for bytes the system did not take, time-outs; draining after
///                 `disconnectAfterWriting` once all writes are complete
///     draining    the buffer to be written out, then the other side's acknowledgements and close
///     closed      nothing; socketDidDisconnect was or is about to be called
///
/// `disconnect`, `disconnectWithReset` or an error leads from any state but fresh to closed.
class StreamSocket final : public GCDAsyncSocket, public std::enable_shared_from_this<StreamSocket> {
 public:
  StreamSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate, std::shared_ptr<DispatchQueue> delegateQueue);
  ~StreamSocket() override;

  void setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate) override;
  [[nodiscard]] bool connectToHost(const std::string& host, std::uint16_t port, double timeout,
                                   SocketError& error) override;
  void setStallTimeout(double seconds) override { stallTimeout_ = seconds; }
  [[nodiscard]] bool acceptOnPort(std::uint16_t port, SocketError& error) override;
  void readDataToLength(std::uint64_t length, double timeout, std::int64_t tag) override;
  void readDataToLength(std::uint64_t length, std::shared_ptr<FileHandle> destination, double timeout,
                        std::int64_t tag) override;
  void readDataToByte(char last, std::uint64_t maximumLength, double timeout, std::int64_t tag) override;
  void writeData(Data data, double timeout, std::int64_t tag) override;
  void disconnect() override;
  void disconnectWithReset() override;
  void disconnectAfterWriting() override;
  [[nodiscard]] std::string connectedHost() const override { return host_; }
  [[nodiscard]] std::uint16_t localPort() const override { return localPort_; }
  [[nodiscard]] bool hasUnread() const override { return descriptor_ && SocketCalls::hasUnread(descriptor_.get()); }

 private:
  enum class State : std::uint8_t { fresh, listening, connecting, connected, draining, closed };
  using Time = std::chrono::steady_clock::time_point;

  /// Until when the first read or write has to be complete. `started` is absent until it had to wait.
  struct Deadline {
    std::optional<Time> started;
    Time expires;
  };

  /// How many written bytes the other side has acknowledged, and when that number last grew, as far as asking the
  /// system from time to time shows.
  struct Acknowledged {
    std::uint64_t bytes = 0;
    Time since;
  };

  // StreamSocket.cpp: opening and closing
  void onQueue(std::function<void(StreamSocket&)> work);
  [[nodiscard]] std::error_code open(FileDescriptor descriptor, State state);
  void beginConnect(std::uint16_t port, double timeout);
  void finishConnect(std::uint16_t port);
  void adopt(FileDescriptor descriptor, std::string host);
  void enqueue(StreamReader::Request request);
  void close(const SocketError& error, bool reset = false);

  // StreamSocketLoop.cpp: moving bytes
  void scheduleLoop();
  void runLoop();
  [[nodiscard]] StreamStep stepReader(GCDAsyncSocketDelegate& delegate);
  [[nodiscard]] StreamStep stepWriter(GCDAsyncSocketDelegate& delegate);
  void settle();
  void waitUntilReady();
  void waitReadable();
  void waitWritable();

  // StreamSocketDraining.cpp: after the last write
  void beginDraining();
  void finishSending();
  [[nodiscard]] std::uint64_t undrainedBytes() const noexcept;
  void drain();
  void checkDraining();

  // StreamSocketTimeouts.cpp: time-outs, and acknowledgements
  [[nodiscard]] static Time::duration inTicks(double seconds);
  void watchDeadlines();
  void watchDeadline(Deadline& deadline, std::optional<double> timeout, Time& earliest);
  void watchStall(Time& earliest);
  void wakeIn(std::chrono::steady_clock::duration delay);
  void onAlarm();
  void checkReadDeadline(Time now);
  void checkWriteDeadline(Time now);
  void extend(Deadline& deadline, double extension, SocketError::Operation operation, Time now);
  void checkStall(Time now);
  void beginAcknowledged(Time now);
  void noteAcknowledged(std::uint64_t outstanding, Time now);

  std::weak_ptr<GCDAsyncSocketDelegate> delegate_;
  const std::shared_ptr<DispatchQueue> queue_;
  State state_ = State::fresh;
  std::shared_ptr<AcceptLoop> acceptLoop_;  // of a listening socket, which has neither of the next two
  FileDescriptor descriptor_;
  std::unique_ptr<DispatchSource> source_;  // after the descriptor, which must outlive it
  std::string host_;
  std::atomic<std::uint16_t> localPort_{0};

  StreamReader reader_;
  StreamWriter writer_;
  bool closesAfterWriting_ = false;
  bool loopScheduled_ = false;
  bool loopRunning_ = false;
  bool waitingToRead_ = false;
  bool waitingToWrite_ = false;

  Deadline readDeadline_;
  Deadline writeDeadline_;
  std::unique_ptr<Alarm> alarm_;
  std::optional<Time> alarmTime_;

  double stallTimeout_ = -1.0;  ///< seconds
  std::optional<Time> nextStallCheck_;
  std::uint64_t written_ = 0;  ///< bytes of writes that the system or the buffer has taken
  Acknowledged acknowledged_;
  bool otherSideHasEnded_ = false;  ///< draining: it has closed and not acknowledged everything yet
};

}  // namespace vesko
