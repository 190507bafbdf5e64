#pragma once

#include <chrono>
#include <cstddef>
#include <iostream>
#include <optional>
#include <thread>

// How a program that asks is driven: it reads lines with a number of rounds, and answers each by a line with the
// microseconds that each round took.
namespace vesko::bench {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// How long an answer is waited for.
constexpr std::chrono::seconds patience{5};

inline void sayReady() { std::cout << "ready" << std::endl; }

/// `round` asks, and returns when the last answer came; none when one is missing, which ends a line's rounds.
template <class Round>
void makeRounds(std::chrono::microseconds pause, Round round) {
  sayReady();
  for (std::size_t count = 0; std::cin >> count; std::cout << std::endl) {
    for (; count > 0; --count) {
      std::this_thread::sleep_for(pause);
      const TimePoint start = Clock::now();
      const std::optional<TimePoint> end = round();
      if (!end) {
        std::cout << "missing";
        break;
      }
      std::cout << std::chrono::duration<double, std::micro>(*end - start).count() << ' ';
    }
  }
}

}  // namespace vesko::bench
