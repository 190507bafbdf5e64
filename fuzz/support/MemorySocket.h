#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "fuzz/support/Check.h"

namespace vesko::fuzz {

/// The receiving side of a connection through which `bytes` come, at most `piece` of them at a time.
class MemorySocket final : public GCDAsyncSocket {
 public:
  /// `whenDry` is called once when more is asked for than there is, and has to bring about the end.
  MemorySocket(std::string_view bytes, std::size_t piece, std::function<void()> whenDry)
      : bytes_(bytes), piece_(piece), whenDry_(std::move(whenDry)) {}

  /// Moves one piece, or tells of the end; false when nothing happens by itself any more.
  [[nodiscard]] bool step() {
    if (hasEnded_) return tellEnd();
    if (reads_.empty()) return false;
    if (!bytes_.empty()) {
      movePiece();
    } else if (whenDry_) {
      std::exchange(whenDry_, nullptr)();
    } else {
      return false;
    }
    return true;
  }

  void end(const SocketError& error) {
    if (std::exchange(hasEnded_, true)) return;
    end_ = error;
    reads_.clear();
  }

  void setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate) override { delegate_ = std::move(delegate); }
  void readDataToLength(std::uint64_t length, double timeout, std::int64_t tag) override {
    readDataToLength(length, nullptr, timeout, tag);
  }
  void readDataToLength(std::uint64_t length, std::shared_ptr<FileHandle> destination, double timeout,
                        std::int64_t tag) override {
    check(length > 0, "a read is of one byte at least");
    check(timeout > 0, "a read has a time-out");
    if (!hasEnded_) reads_.push_back({length, std::move(destination), tag, {}, 0, false});
  }
  void readDataToByte(char last, std::uint64_t maximumLength, double timeout, std::int64_t tag) override {
    check(last == '\0', "names end with a zero byte");
    readDataToLength(maximumLength, timeout, tag);
    if (!hasEnded_) reads_.back().endsWithZero = true;
  }
  void disconnect() override { end({}); }
  void disconnectWithReset() override { end({}); }

  void writeData(Data /*data*/, double /*timeout*/, std::int64_t /*tag*/) override { broken("nothing is written"); }
  void setStallTimeout(double /*seconds*/) override {}
  void disconnectAfterWriting() override { broken("nothing is written"); }
  [[nodiscard]] bool connectToHost(const std::string&, std::uint16_t, double, SocketError&) override { return false; }
  [[nodiscard]] bool acceptOnPort(std::uint16_t, SocketError&) override { return false; }
  [[nodiscard]] std::string connectedHost() const override { return "192.0.2.1"; }
  [[nodiscard]] std::uint16_t localPort() const override { return 1; }
  [[nodiscard]] bool hasUnread() const override { return false; }

 private:
  struct Read {
    std::uint64_t length;
    std::shared_ptr<FileHandle> destination;
    std::int64_t tag;
    std::string gathered;
    std::uint64_t done;
    bool endsWithZero;  ///< any bytes up to the first zero byte will do
  };

  void movePiece() {
    Read& read = reads_.front();
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(piece_, read.length - read.done));
    auto bytes = bytes_.substr(0, count);
    if (read.endsWithZero) {
      const auto zero = bytes.find('\0');
      bytes = bytes.substr(0, zero == std::string_view::npos ? zero : zero + 1);
      read.length = bytes.size();
    }
    bytes_.remove_prefix(bytes.size());
    read.done += bytes.size();
    if (!store(read, bytes)) return;
    const auto delegate = delegate_.lock();
    if (read.done < read.length) {
      if (delegate) delegate->socketDidReadPartialDataOfLength(*this, bytes.size(), read.tag);
      return;
    }
    Read whole = std::move(read);
    reads_.pop_front();
    if (delegate) delegate->socketDidReadData(*this, dataOf(whole), whole.tag);
  }

  [[nodiscard]] bool store(Read& read, std::string_view bytes) {
    if (!read.destination) {
      read.gathered += bytes;
      return true;
    }
    std::error_code error;
    read.destination->writeData(bytes, error);
    if (error) end({SocketError::Operation::destination, error});
    return !error;
  }

  static Data dataOf(Read& read) {
    if (!read.destination) return Data(std::move(read.gathered));
    const auto offset = read.destination->offsetInFile() - read.length;
    return Data::stretchOfFile(std::move(read.destination), offset, read.length);
  }

  [[nodiscard]] bool tellEnd() {
    if (std::exchange(isEndTold_, true)) return false;
    if (const auto delegate = delegate_.lock()) delegate->socketDidDisconnect(*this, end_);
    return true;
  }

  std::string_view bytes_;
  const std::size_t piece_;
  std::function<void()> whenDry_;
  std::weak_ptr<GCDAsyncSocketDelegate> delegate_;
  std::deque<Read> reads_;
  SocketError end_;
  bool hasEnded_ = false;
  bool isEndTold_ = false;
};

}  // namespace vesko::fuzz
