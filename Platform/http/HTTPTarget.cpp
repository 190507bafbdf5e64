#include "Platform/http/HTTPTarget.h"

#include <cstddef>

#include "Platform/text/Numbers.h"

namespace vesko {

namespace {

std::string withoutEscapes(std::string_view text) {
  std::string decoded;
  while (!text.empty()) {
    const std::string_view digits = text.front() == '%' ? text.substr(1, 2) : std::string_view();
    const auto byte = digits.size() == 2 ? wholeNumber<unsigned char>(digits, 16) : std::nullopt;
    decoded += byte ? static_cast<char>(*byte) : text.front();
    text.remove_prefix(byte ? 3 : 1);
  }
  return decoded;
}

/// What follows the authority of a target in absolute form, and others unchanged.
std::string_view withoutAuthority(std::string_view target) {
  static constexpr std::string_view scheme = "http://";
  if (target.size() < scheme.size()) return target;
  for (std::size_t i = 0; i < scheme.size(); ++i) {
    const bool isLetter = scheme[i] >= 'a';
    if (static_cast<char>(target[i] | (isLetter ? 0x20 : 0)) != scheme[i]) return target;
  }
  target.remove_prefix(scheme.size());
  const std::size_t end = target.find_first_of("/?");
  return end == std::string_view::npos || target[end] == '?' ? "/" : target.substr(end);
}

}  // namespace

std::string pathOfTarget(std::string_view target) {
  const std::string_view path = withoutAuthority(target);
  return path.starts_with('/') ? withoutEscapes(path.substr(0, path.find('?'))) : std::string(target);
}

}  // namespace vesko
