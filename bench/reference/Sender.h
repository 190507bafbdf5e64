#pragma once

#include <cstdint>
#include <string>

namespace vesko::reference {

/// Sends the file or folder at `path` to whoever listens on `port`: small files gathered in a buffer, large ones by
/// sendfile.
void send(std::uint16_t port, const std::string& path);

}  // namespace vesko::reference
