#pragma once

#include <cstdint>

#include "bench/reference/Descriptor.h"

/// TCP over loopback.
namespace vesko::reference {

[[nodiscard]] Descriptor connectTo(std::uint16_t port);
[[nodiscard]] Descriptor acceptOne(std::uint16_t port);  ///< Waits for it.

}  // namespace vesko::reference
