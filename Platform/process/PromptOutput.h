#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

namespace vesko {

/// A place for bytes that never keeps who writes to it waiting for who reads: what is not taken at once is left to the
/// caller. The memory of a disk is no reader; a regular file takes all it has room for. Any thread, one at a time.
class PromptOutput {
 public:
  /// What is at `path`, appended to; a new file where there is nothing. A pipe that nobody reads yet takes no bytes,
  /// and is opened once somebody does. None, with `error` set, when it cannot be opened.
  [[nodiscard]] static std::unique_ptr<PromptOutput> atPath(const std::string& path, std::error_code& error);

  /// What is the process's standard output at the time of each call, past the buffer that `stdout` has.
  [[nodiscard]] static std::unique_ptr<PromptOutput> standard();

  virtual ~PromptOutput() = default;
  PromptOutput(const PromptOutput&) = delete;
  PromptOutput& operator=(const PromptOutput&) = delete;

  /// Writes the beginning of `bytes`, as much as is taken, and returns the count. Where that is not all, `error` is
  /// set: to `std::errc::operation_would_block` when somebody reads, who is behind. Raises no signal, whoever calls.
  [[nodiscard]] virtual std::size_t write(std::string_view bytes, std::error_code& error) noexcept = 0;

  /// True when more may be taken, which is waited for, `limit` at most.
  [[nodiscard]] virtual bool waitForRoom(std::chrono::milliseconds limit) const noexcept = 0;

 protected:
  PromptOutput() = default;
};

}  // namespace vesko
