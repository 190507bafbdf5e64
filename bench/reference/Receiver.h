#pragma once

#include <cstdint>
#include <string>

namespace vesko::reference {

/// Stores in the folder `path` what one sender brings on `port`: small files from a buffer, large ones by splice.
void receive(std::uint16_t port, const std::string& path);

}  // namespace vesko::reference
