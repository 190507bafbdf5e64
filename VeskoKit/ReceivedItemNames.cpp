#include "VeskoKit/ReceivedItemNames.h"

#include <algorithm>

#include "VeskoKit/PathText.h"

namespace vesko::ReceivedItemNames {
namespace {

bool isDigit(char character) noexcept { return character >= '0' && character <= '9'; }

bool isLetterOrDigit(char character) noexcept {
  const char lower = static_cast<char>(character | 0x20);
  return isDigit(character) || (lower >= 'a' && lower <= 'z');
}

/// The longest part of the beginning of `text`, which is UTF-8, that has at most `length` bytes and cuts no character.
std::string_view beginning(std::string_view text, std::size_t length) noexcept {
  if (text.size() <= length) return text;
  while (length > 0 && (text[length] & 0xC0) == 0x80) --length;
  return text.substr(0, length);
}

}  // namespace

bool isStorageName(std::string_view name) noexcept {
  if (name.size() != storagePrefix.size() + storageDateLength + storageRandomLength) return false;
  const auto date = name.substr(storagePrefix.size(), storageDateLength);
  const auto random = name.substr(storagePrefix.size() + storageDateLength);
  return name.starts_with(storagePrefix) && std::ranges::all_of(date, isDigit) &&
         std::ranges::all_of(random, isLetterOrDigit);
}

std::string numberedName(const std::string& name, std::uint64_t counter) {
  const auto number = " (" + std::to_string(counter) + ")";
  const auto extension = pathExtension(name);
  const auto ending = extension.empty() ? number : number + "." + extension;
  // An extension of such a length is none, and would leave no room for what it extends.
  if (ending.size() > maximumLength / 2) {
    return std::string(beginning(name, maximumLength - number.size())) + number;
  }
  return std::string(beginning(stringByDeletingPathExtension(name), maximumLength - ending.size())) + ending;
}

}  // namespace vesko::ReceivedItemNames
