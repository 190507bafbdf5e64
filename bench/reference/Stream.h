#pragma once

#include <cstddef>
#include <cstdint>

/// What both sides keep to. The stream is the number of elements and the sum of their sizes, then for each element its
/// name, a 0x00 byte, its size and its body. Numbers have 64 bits in this machine's byte order, since one machine is
/// measured with itself.
namespace vesko::reference {

constexpr std::size_t bufferSize = 256 * 1024;
constexpr std::uint64_t zeroCopySize = 64 * 1024;        ///< bodies from this size on bypass the buffer
constexpr std::uint64_t folderMark = ~std::uint64_t{0};  ///< the size of a folder

}  // namespace vesko::reference
