#pragma once

#include <cstdint>

namespace vesko {

/// The result of a step of the first queued read or write.
enum class StreamStep : std::uint8_t {
  idle,       ///< nothing is queued
  blocked,    ///< the connection is not ready
  moved,      ///< some bytes were moved
  completed,  ///< the read or write is complete and was removed from the queue
  failed,     ///< the connection has to be closed
};

}  // namespace vesko
