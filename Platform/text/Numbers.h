#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace vesko {

/// The number that `text` consists of, in digits of `base`. None when it is anything else (blanks and "+" included) or
/// exceeds the range of `Number`. Any thread.
template <class Number>
[[nodiscard]] std::optional<Number> wholeNumber(std::string_view text, int base = 10) noexcept {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  const bool isAll = error == std::errc() && end == text.data() + text.size();
  return isAll ? std::optional(number) : std::nullopt;
}

}  // namespace vesko
