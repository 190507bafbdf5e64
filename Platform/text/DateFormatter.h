#pragma once

#include <chrono>
#include <string>

namespace vesko {

/// Writes a time in the user's time zone by a Unicode date pattern (UTS 35): runs of y, M, d, H (24-hour clock), h
/// (12-hour clock, 01 to 12), m and s, each padded with zeros to the length of the run. All other characters are
/// copied. Any thread.
class DateFormatter {
 public:
  explicit DateFormatter(std::string dateFormat) : dateFormat_(std::move(dateFormat)) {}

  [[nodiscard]] std::string stringFromDate(std::chrono::system_clock::time_point date) const;

 private:
  std::string dateFormat_;
};

}  // namespace vesko
