#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

namespace vesko {

/// One known machine. Shared between the peer table, transfers and the host; the record guards its own fields, so every
/// operation may be called on any thread.
class VeskoPeer {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  /// A record without a picture.
  VeskoPeer(std::string key, std::string ip, std::uint16_t port, std::string systemSignature, TimePoint lastActiveTime);
  virtual ~VeskoPeer() = default;
  VeskoPeer(const VeskoPeer&) = delete;
  VeskoPeer& operator=(const VeskoPeer&) = delete;

  /// The machine's IPv4 address in dotted-decimal form.
  [[nodiscard]] virtual std::string ip() const;
  virtual void setIp(std::string ip);

  /// The machine's service port: hellos are answered there, and transfers connect there.
  [[nodiscard]] virtual std::uint16_t port() const;
  virtual void setPort(std::uint16_t port);

  /// How the machine describes itself, in UTF-8: at most 4,096 bytes, control characters included.
  [[nodiscard]] virtual std::string systemSignature() const;
  virtual void setSystemSignature(std::string systemSignature);

  /// When the machine said hello last.
  [[nodiscard]] virtual TimePoint lastActiveTime() const;
  virtual void setLastActiveTime(TimePoint lastActiveTime);

  /// The user's picture: empty until it is fetched, "loading" meanwhile, then a data URL of a PNG (RFC 2397), 5.4 MiB
  /// at most. Each call copies it. It stays with the record when the machine has left.
  [[nodiscard]] virtual std::string avatar() const;
  virtual void setAvatar(std::string avatar);

  /// Whether there is a picture, without a copy of it: "" or "loading" as above, "png" once it is there.
  [[nodiscard]] virtual std::string avatarState() const;

  /// The record's key in the peer table: the address that its hellos come from.
  [[nodiscard]] virtual std::string key() const;
  virtual void setKey(std::string key);

 private:
  template <class Field>
  Field get(const Field& field) const {
    const std::scoped_lock lock(mutex_);
    return field;
  }
  template <class Field>
  void set(Field& field, Field value) {
    const std::scoped_lock lock(mutex_);
    field = std::move(value);
  }

  mutable std::mutex mutex_;
  std::string ip_;
  std::uint16_t port_;
  std::string systemSignature_;
  TimePoint lastActiveTime_;
  std::string avatar_;
  std::string key_;
};

}  // namespace vesko
