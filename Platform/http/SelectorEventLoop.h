#pragma once

#include <memory>

namespace vesko {

/// The event loop of HTTP servers and requests: one thread, which runs one handler at a time. Any thread.
class SelectorEventLoop {
 public:
  /// Holds the Boost.Asio types, which only the sources of `Platform/` know.
  struct Context;

  /// Throws `std::system_error` when the system has no descriptors left.
  SelectorEventLoop();

  /// Stops the loop, as `stop` does.
  ~SelectorEventLoop();
  SelectorEventLoop(const SelectorEventLoop&) = delete;
  SelectorEventLoop& operator=(const SelectorEventLoop&) = delete;

  /// Starts the thread, which runs until `stop`; does nothing when it runs already. Returns at once. Throws
  /// `std::system_error` when the system has no thread left.
  void runForever();

  /// Ends the thread after the current handler, and waits for it. Requires: not called on the loop's thread; that ends
  /// the process.
  void stop();

  [[nodiscard]] Context& context() noexcept { return *context_; }

 private:
  std::unique_ptr<Context> context_;
};

}  // namespace vesko
