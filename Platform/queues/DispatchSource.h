#pragma once

#include <functional>

namespace vesko {

/// Tells when a descriptor can be read or written, as tasks on the queue that made the source. On that queue only, but
/// it may be destroyed on any thread.
class DispatchSource {
 public:
  virtual ~DispatchSource() = default;
  DispatchSource(const DispatchSource&) = delete;
  DispatchSource& operator=(const DispatchSource&) = delete;

  /// Calls `handler` once, when bytes, a connection, the end of the stream or an error can be read. Not called after
  /// the source was destroyed on the queue. Requires: no earlier request of the same kind is open.
  virtual void whenReadable(std::function<void()> handler) = 0;

  /// The same for room to write, the end of an attempt to connect, or an error.
  virtual void whenWritable(std::function<void()> handler) = 0;

 protected:
  DispatchSource() = default;
};

}  // namespace vesko
