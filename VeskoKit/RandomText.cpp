#include "VeskoKit/RandomText.h"

#include <string_view>

#include "Platform/process/Random.h"

namespace vesko {

std::string generateRandomStringWithLength(std::int64_t length) {
  constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::string text;
  for (std::int64_t position = 0; position < length; ++position) text += letters[arc4random_uniform(letters.size())];
  return text;
}

}  // namespace vesko
