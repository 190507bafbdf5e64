#pragma once

#include <memory>

namespace vesko {

/// The loop that HTTP servers and requests run on, one handler at a time, on one thread of its own. Any thread.
class SelectorEventLoop {
 public:
  /// What the library that the loop is made with calls it; for `Platform/` alone.
  struct Context;

  /// Throws `std::system_error` when the system has no descriptors left.
  SelectorEventLoop();

  /// Ends the loop, as `stop` does.
  ~SelectorEventLoop();
  SelectorEventLoop(const SelectorEventLoop&) = delete;
  SelectorEventLoop& operator=(const SelectorEventLoop&) = delete;

  /// Starts the thread, which runs until `stop`. Does nothing when it runs. Throws `std::system_error` when the system
  /// has no thread left.
  void runForever();

  /// Ends the thread after the handler under way, and waits for that. Must not be called on the loop's thread.
  void stop();

  [[nodiscard]] Context& context() noexcept { return *context_; }

 private:
  std::unique_ptr<Context> context_;
};

}  // namespace vesko
