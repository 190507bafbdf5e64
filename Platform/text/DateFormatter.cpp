#include "Platform/text/DateFormatter.h"

#include <algorithm>
#include <ctime>
#include <mutex>
#include <optional>

namespace vesko {
namespace {

/// The value that a letter of a pattern stands for; none for a letter that stands for itself.
std::optional<int> fieldOfLetter(char letter, const std::tm& time) {
  switch (letter) {
    case 'y':
      return time.tm_year + 1900;
    case 'M':
      return time.tm_mon + 1;
    case 'd':
      return time.tm_mday;
    case 'H':
      return time.tm_hour;
    case 'h':
      return (time.tm_hour + 11) % 12 + 1;
    case 'm':
      return time.tm_min;
    case 's':
      return time.tm_sec;
    default:
      return std::nullopt;
  }
}

std::tm localTime(std::time_t seconds) {
  // The C library guards the process's time zone with a lock that thread checkers do not see.
  static std::mutex timeZone;
  const std::scoped_lock lock(timeZone);
  std::tm time{};
  // localtime_r looks at the time zone only once, and a service outlives a journey.
  ::tzset();
  ::localtime_r(&seconds, &time);
  return time;
}

}  // namespace

std::string DateFormatter::stringFromDate(std::chrono::system_clock::time_point date) const {
  const std::tm time = localTime(std::chrono::system_clock::to_time_t(date));
  std::string text;
  for (std::size_t start = 0, end = 0; start < dateFormat_.size(); start = end) {
    const char letter = dateFormat_[start];
    end = std::min(dateFormat_.find_first_not_of(letter, start), dateFormat_.size());
    if (const auto field = fieldOfLetter(letter, time)) {
      const auto digits = std::to_string(*field);
      text.append(end - start - std::min(end - start, digits.size()), '0').append(digits);
    } else {
      text.append(end - start, letter);
    }
  }
  return text;
}

}  // namespace vesko
