#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace vesko {

/// Sets the process's time zone for as long as it lives.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* present = std::getenv("TZ")) before_ = present;
    set(zone);
  }
  ~TimeZone() { set(before_ ? before_->c_str() : nullptr); }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

 private:
  static void set(const char* zone) {
    if (zone == nullptr) {
      ::unsetenv("TZ");
    } else {
      ::setenv("TZ", zone, 1);
    }
    ::tzset();
  }

  std::optional<std::string> before_;
};

}  // namespace vesko
