#pragma once

#include <cstdint>

namespace vesko {

/// A uniformly distributed number from 0 to `bound` - 1, from the system's random numbers. Throws `std::system_error`
/// when the system gives none. Any thread. Requires: `bound` at least 1.
[[nodiscard]] std::uint32_t arc4random_uniform(std::uint32_t bound);

}  // namespace vesko
