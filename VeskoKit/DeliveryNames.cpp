#include "VeskoKit/DeliveryNames.h"

#include <algorithm>

#include "Platform/text/TextEncoding.h"
#include "VeskoKit/PathText.h"

namespace vesko::DeliveryNames {
namespace {

bool isDigit(char character) noexcept { return character >= '0' && character <= '9'; }

bool isLetter(char character) noexcept {
  const char lower = static_cast<char>(character | 0x20);
  return lower >= 'a' && lower <= 'z';
}

bool isLetterOrDigit(char character) noexcept { return isDigit(character) || isLetter(character); }

/// ASCII only: the prefix has no other letters.
bool isInAnyCase(char character, char wanted) noexcept {
  return character == wanted || (isLetter(wanted) && (character ^ wanted) == 0x20);
}

}  // namespace

bool isStorageName(std::string_view name) noexcept {
  if (name.size() != storagePrefix.size() + storageDateLength + storageRandomLength) return false;
  const auto date = name.substr(storagePrefix.size(), storageDateLength);
  const auto random = name.substr(storagePrefix.size() + storageDateLength);
  return std::ranges::equal(name.substr(0, storagePrefix.size()), storagePrefix, isInAnyCase) &&
         std::ranges::all_of(date, isDigit) && std::ranges::all_of(random, isLetterOrDigit);
}

std::string numberedName(const std::string& name, std::uint64_t counter) {
  const auto number = " (" + std::to_string(counter) + ")";
  const auto extension = pathExtension(name);
  const auto ending = extension.empty() ? number : number + "." + extension;
  if (ending.size() < maximumLength) {
    const auto stem = stringByDeletingPathExtension(name);
    if (const auto kept = beginningOfUtf8(stem, maximumLength - ending.size()); !kept.empty()) {
      return std::string(kept) + ending;
    }
  }
  // The extension alone is too long: it is cut like any other part of the name.
  return std::string(beginningOfUtf8(name, maximumLength - number.size())) + number;
}

}  // namespace vesko::DeliveryNames
