#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vesko {

/// Makes calls of the operating system fail, for as long as it lives.
///
/// The linker leads each call of `wrappedCalls` to a function of the same name with "__wrap_" before it, which
/// asks here first: production code knows nothing of it. Faults strike on every thread but the one that made this
/// object, whose own calls count only inside `asProduct`. One at a time.
class SystemFaults {
 public:
  static constexpr std::size_t forever = std::numeric_limits<std::size_t>::max();

  /// A call that would have moved bytes moves fewer, at least one.
  static constexpr int fewerBytes = 0;

  struct Fault {
    int error = fewerBytes;  ///< what errno becomes, the call not having been made
    std::vector<std::string_view> calls;
    std::size_t first = 1;  ///< which of these calls, in the order in which they are made, fails first
    std::size_t count = 1;  ///< how many of them fail in a row
  };

  /// The first of several faults that applies to a call decides.
  explicit SystemFaults(std::vector<Fault> faults);
  ~SystemFaults();
  SystemFaults(const SystemFaults&) = delete;
  SystemFaults& operator=(const SystemFaults&) = delete;

  /// Has the names that calls take inside a folder reach the system as this spells them, as on a file system that takes
  /// different names for one. A name that becomes "" is one that it cannot have.
  void spellNames(std::string (*spelling)(std::string name));

  /// Runs a part of the product on this thread.
  template <class Task>
  auto asProduct(Task task) {
    const AsProduct here;
    return task();
  }

  /// How often the fault at `index` has struck so far.
  [[nodiscard]] std::size_t strikes(std::size_t index = 0) const;

  /// How often a call has been made since, failures included.
  [[nodiscard]] std::size_t callsOf(std::string_view call) const;

  /// Waits for the listeners of this process to accept every connection it has tried to make since; false when they do
  /// not within ten seconds.
  [[nodiscard]] bool waitUntilAllAreAccepted() const;

  /// The names of all wrapped calls; "openat creating" is one that makes a file, "splice to file" one that writes to
  /// it. Two are left alone, for they cannot fail in earnest: `epoll_ctl` but for adding, and `setsockopt` for
  /// SO_LINGER.
  [[nodiscard]] static std::vector<std::string> wrappedCalls();

 private:
  class AsProduct {
   public:
    AsProduct();
    ~AsProduct();
    AsProduct(const AsProduct&) = delete;
    AsProduct& operator=(const AsProduct&) = delete;
  };
};

}  // namespace vesko
