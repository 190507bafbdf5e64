#include "Platform/process/Random.h"

#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <system_error>

namespace vesko {
namespace {

std::uint32_t randomBits() {
  std::uint32_t bits = 0;
  if (::getentropy(&bits, sizeof bits) != 0) throw std::system_error(errno, std::generic_category(), "getentropy");
  return bits;
}

}  // namespace

std::uint32_t arc4random_uniform(std::uint32_t bound) {
  assert(bound > 0);
  // The lowest 2^32 mod bound draws are thrown away: what is left is a whole number of runs from 0 to bound - 1.
  const std::uint32_t discarded = (0U - bound) % bound;
  std::uint32_t drawn = randomBits();
  while (drawn < discarded) drawn = randomBits();
  return drawn % bound;
}

}  // namespace vesko
