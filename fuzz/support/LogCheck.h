#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

#include "VeskoKit/Log.h"
#include "fuzz/support/Check.h"

namespace vesko::fuzz {

/// Sees to it that every event is one line that cannot drive a terminal.
class LogCheck final : public LogSink {
 public:
  void write(std::string_view line) override {
    check(line.ends_with('\n'), "a line of the log has an end");
    line.remove_suffix(1);
    const auto isControl = [](char character) {
      return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    };
    check(std::ranges::none_of(line, isControl), "a line of the log holds no control characters");
  }
};

/// Has the lines of the log checked from now on, or not even made.
inline void listenToLog(bool isWanted) {
  static std::optional<bool> isSet;
  if (isSet == isWanted) return;
  isSet = isWanted;
  Log::setSink(isWanted ? std::make_shared<LogCheck>() : nullptr);
}

}  // namespace vesko::fuzz
