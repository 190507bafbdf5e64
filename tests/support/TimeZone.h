#pragma once

#include <cstdlib>
#include <ctime>

namespace vesko {

/// Sets the process's time zone for as long as it lives; afterwards it is the system's.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~TimeZone() {
    ::unsetenv("TZ");
    ::tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
};

}  // namespace vesko
