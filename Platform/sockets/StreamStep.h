#pragma once

#include <cstdint>

namespace vesko {

/// What came of trying to bring a queued read or write one step further.
enum class StreamStep : std::uint8_t {
  idle,       ///< nothing is queued
  blocked,    ///< the connection has to become ready first
  moved,      ///< some bytes have moved
  completed,  ///< the first operation is complete and has left the queue
  failed,     ///< the connection cannot go on
};

}  // namespace vesko
