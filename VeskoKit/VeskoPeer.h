#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace vesko {

/// One machine that can be sent to. Shared between the service, transfers and the host; the record guards its own
/// fields, so every operation may be called on any thread.
class VeskoPeer {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  VeskoPeer(std::string key, std::string ip, std::uint16_t port, std::string systemSignature, TimePoint lastActiveTime);

  /// The machine's IPv4 address in dotted-decimal form.
  [[nodiscard]] std::string ip() const;
  void setIp(std::string ip);

  /// The TCP port that transfers connect to.
  [[nodiscard]] std::uint16_t port() const;
  void setPort(std::uint16_t port);

  /// How the machine describes itself.
  [[nodiscard]] std::string systemSignature() const;
  void setSystemSignature(std::string systemSignature);

  /// When the machine was last heard.
  [[nodiscard]] TimePoint lastActiveTime() const;
  void setLastActiveTime(TimePoint lastActiveTime);

  /// The record's key in the peer table.
  [[nodiscard]] std::string key() const;

 private:
  mutable std::mutex mutex_;
  std::string ip_;
  std::uint16_t port_;
  std::string systemSignature_;
  TimePoint lastActiveTime_;
  std::string key_;
};

}  // namespace vesko
