#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace vesko {

/// Output that never waits for a slow reader: what is not taken at once is left to the caller. A regular file takes
/// everything its disk has room for, so writing to one may wait for the disk. Any thread, one at a time.
class PromptOutput {
 public:
  /// Appends to what is at `path`; a new file is made when nothing is there. A pipe without a reader takes no bytes and
  /// is opened when a reader has come. None, with `error` set, when it cannot be opened.
  [[nodiscard]] static std::unique_ptr<PromptOutput> atPath(const std::string& path, std::error_code& error);

  /// Writes to what is the process's standard output at the time of each call. The buffer of `stdout` is not used.
  [[nodiscard]] static std::unique_ptr<PromptOutput> standard();

  virtual ~PromptOutput() = default;
  PromptOutput(const PromptOutput&) = delete;
  PromptOutput& operator=(const PromptOutput&) = delete;

  /// Writes as much of the beginning of `bytes` as is taken and returns the number of bytes. `error` is set when that
  /// is not all: `std::errc::operation_would_block` when the reader is slow, so that a later try may succeed. Raises no
  /// signal.
  [[nodiscard]] virtual std::size_t write(std::string_view bytes, std::error_code& error) noexcept = 0;

  /// Waits until more can be written, `limit` at most. True when it can.
  [[nodiscard]] virtual bool waitForRoom(std::chrono::milliseconds limit) const noexcept = 0;

 protected:
  PromptOutput() = default;
};

}  // namespace vesko
