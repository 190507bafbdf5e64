#pragma once

#include <cstdint>
#include <string>

namespace vesko {

/// `length` letters (a-z, A-Z) and digits, each drawn independently and uniformly from the system's source of
/// randomness. Empty when `length` is below 1. Any thread.
[[nodiscard]] std::string generateRandomStringWithLength(std::int64_t length);

}  // namespace vesko
