#pragma once

#include <cstdint>
#include <string>

namespace vesko {

/// `length` letters (a-z, A-Z) and digits, each drawn independently and uniformly from the system's random numbers.
/// Empty when `length` is below 1. Throws `std::system_error` when the system gives no random numbers. Any thread.
[[nodiscard]] std::string generateRandomStringWithLength(std::int64_t length);

}  // namespace vesko
