#pragma once

#include <cstdint>

/// How many descriptors this process may have open at once (RLIMIT_NOFILE). Any thread.
namespace vesko::DescriptorLimit {

/// The limit in force; the largest number when there is none.
[[nodiscard]] std::uint64_t current() noexcept;

/// Raises the limit to `wanted`, or as far as this process may. Never lowers it. A failure changes nothing.
void raise(std::uint64_t wanted) noexcept;

}  // namespace vesko::DescriptorLimit
