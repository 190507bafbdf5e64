#pragma once

#include <functional>
#include <memory>
#include <system_error>

namespace vesko {

class DispatchQueue;

/// Tells when the network interfaces may have changed: addresses that come and go, links that go up and down. The
/// system sends messages about that (rtnetlink(7)); nothing is polled.
class InterfaceWatch {
 public:
  virtual ~InterfaceWatch() = default;
  InterfaceWatch(const InterfaceWatch&) = delete;
  InterfaceWatch& operator=(const InterfaceWatch&) = delete;

  /// Calls `onChange` on the serial queue `queue` after changes, once for several that come together. None, with
  /// `error` set, when the system cannot send messages. The watch may be destroyed on any thread; a call may then still
  /// be running.
  [[nodiscard]] static std::unique_ptr<InterfaceWatch> make(std::shared_ptr<DispatchQueue> queue,
                                                            std::function<void()> onChange, std::error_code& error);

 protected:
  InterfaceWatch() = default;
};

}  // namespace vesko
