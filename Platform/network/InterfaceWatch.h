#pragma once

#include <functional>
#include <memory>
#include <system_error>

namespace vesko {

class DispatchQueue;

/// Tells when something about the network interfaces may have changed: addresses that come and go, links that go up and
/// down. The system says so by itself (rtnetlink(7)); nothing is polled.
class InterfaceWatch {
 public:
  virtual ~InterfaceWatch() = default;
  InterfaceWatch(const InterfaceWatch&) = delete;
  InterfaceWatch& operator=(const InterfaceWatch&) = delete;

  /// Calls `onChange` on `queue`, a serial one, after changes: once for those that come together. None, with `error`
  /// set, when the system cannot tell. The watch may be destroyed on any thread; a call may be under way then.
  [[nodiscard]] static std::unique_ptr<InterfaceWatch> make(std::shared_ptr<DispatchQueue> queue,
                                                            std::function<void()> onChange, std::error_code& error);

 protected:
  InterfaceWatch() = default;
};

}  // namespace vesko
