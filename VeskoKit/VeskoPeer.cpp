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

std::string VeskoPeer::ip() const { return get(ip_); }
void VeskoPeer::setIp(std::string ip) { set(ip_, std::move(ip)); }

std::uint16_t VeskoPeer::port() const { return get(port_); }
void VeskoPeer::setPort(std::uint16_t port) { set(port_, port); }

std::string VeskoPeer::systemSignature() const { return get(systemSignature_); }
void VeskoPeer::setSystemSignature(std::string systemSignature) { set(systemSignature_, std::move(systemSignature)); }

VeskoPeer::TimePoint VeskoPeer::lastActiveTime() const { return get(lastActiveTime_); }
void VeskoPeer::setLastActiveTime(TimePoint lastActiveTime) { set(lastActiveTime_, lastActiveTime); }

std::string VeskoPeer::avatar() const { return get(avatar_); }
void VeskoPeer::setAvatar(std::string avatar) { set(avatar_, std::move(avatar)); }

std::string VeskoPeer::avatarState() const {
  const std::scoped_lock lock(mutex_);
  return avatar_.empty() || avatar_ == "loading" ? avatar_ : "png";
}

std::string VeskoPeer::key() const { return get(key_); }
void VeskoPeer::setKey(std::string key) { set(key_, std::move(key)); }

}  // namespace vesko
