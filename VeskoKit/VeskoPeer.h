#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

namespace vesko {

/// What is known of one peer. The peer table, transfers and the host share the record. It locks its own fields, so
/// every operation may be called on any thread; two calls may see two different updates.
class VeskoPeer {
 public:
  using TimePoint = std::chrono::system_clock::time_point;

  /// A record without an avatar. A host makes one itself to send to an address that is not in the peer table; `key` and
  /// `systemSignature` may then be anything.
  VeskoPeer(std::string key, std::string ip, std::uint16_t port, std::string systemSignature, TimePoint lastActiveTime);
  virtual ~VeskoPeer() = default;
  VeskoPeer(const VeskoPeer&) = delete;
  VeskoPeer& operator=(const VeskoPeer&) = delete;

  /// The peer's IPv4 address.
  [[nodiscard]] virtual std::string ip() const;
  virtual void setIp(std::string ip);

  /// The peer's service port: hellos are answered to this UDP port, and transfers connect to this TCP port. The avatar
  /// is served on the port after it.
  [[nodiscard]] virtual std::uint16_t port() const;
  virtual void setPort(std::uint16_t port);

  /// How the peer describes itself, in UTF-8. From the network: at most 4,096 bytes, control characters included, so
  /// escape it before showing it on a terminal (`Log::escaped`).
  [[nodiscard]] virtual std::string systemSignature() const;
  virtual void setSystemSignature(std::string systemSignature);

  /// When the last hello of this peer was received.
  [[nodiscard]] virtual TimePoint lastActiveTime() const;
  virtual void setLastActiveTime(TimePoint lastActiveTime);

  /// The user's avatar: "" before it is fetched, "loading" from then on, and once it has arrived a data URL of a PNG
  /// (RFC 2397) of at most 5.4 MiB. Each call copies it. The record keeps it after the peer has said goodbye.
  [[nodiscard]] virtual std::string avatar() const;
  virtual void setAvatar(std::string avatar);

  /// The state of the avatar without a copy of it: "", "loading" or, once it has arrived, "png".
  [[nodiscard]] virtual std::string avatarState() const;

  /// The key of the record in the peer table: the IPv4 address that the peer's hellos come from.
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
