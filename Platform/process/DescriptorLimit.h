#pragma once

#include <cstdint>

/// How many descriptors this process may have open at once (RLIMIT_NOFILE). Any thread.
namespace vesko::DescriptorLimit {

/// The bound that holds now; the largest number where there is none.
[[nodiscard]] std::uint64_t current() noexcept;

/// Raises the bound to `wanted`, or as far as this process may. Never lowers it; a refusal leaves it as it is.
void raise(std::uint64_t wanted) noexcept;

}  // namespace vesko::DescriptorLimit
