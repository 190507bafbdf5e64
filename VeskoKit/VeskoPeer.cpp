#include "VeskoKit/VeskoPeer.h"

#include <utility>

namespace vesko {

VeskoPeer::VeskoPeer(std::string key, std::string ip, std::uint16_t port, std::string systemSignature,
                     TimePoint lastActiveTime)
    : ip_(std::move(ip)),
      port_(port),
      systemSignature_(std::move(systemSignature)),
      lastActiveTime_(lastActiveTime),
      key_(std::move(key)) {}

std::string VeskoPeer::ip() const {
  const std::scoped_lock lock(mutex_);
  return ip_;
}

void VeskoPeer::setIp(std::string ip) {
  const std::scoped_lock lock(mutex_);
  ip_ = std::move(ip);
}

std::uint16_t VeskoPeer::port() const {
  const std::scoped_lock lock(mutex_);
  return port_;
}

void VeskoPeer::setPort(std::uint16_t port) {
  const std::scoped_lock lock(mutex_);
  port_ = port;
}

std::string VeskoPeer::systemSignature() const {
  const std::scoped_lock lock(mutex_);
  return systemSignature_;
}

void VeskoPeer::setSystemSignature(std::string systemSignature) {
  const std::scoped_lock lock(mutex_);
  systemSignature_ = std::move(systemSignature);
}

VeskoPeer::TimePoint VeskoPeer::lastActiveTime() const {
  const std::scoped_lock lock(mutex_);
  return lastActiveTime_;
}

void VeskoPeer::setLastActiveTime(TimePoint lastActiveTime) {
  const std::scoped_lock lock(mutex_);
  lastActiveTime_ = lastActiveTime;
}

std::string VeskoPeer::key() const {
  const std::scoped_lock lock(mutex_);
  return key_;
}

}  // namespace vesko
