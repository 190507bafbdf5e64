#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

/// What the system gives us, or an exception that names what failed.
namespace vesko::reference {

[[noreturn]] inline void fail(std::string_view what) {
  throw std::system_error(errno, std::generic_category(), std::string(what));
}

/// The result of a system call, unless it failed.
template <typename Result>
Result check(Result result, std::string_view what) {
  if (result < 0) fail(what);
  return result;
}

/// A file descriptor that is closed at the end.
class Descriptor {
 public:
  Descriptor() = default;
  Descriptor(int number, std::string_view what) : number_(check(number, what)) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  [[nodiscard]] int get() const { return number_; }

 private:
  int number_ = -1;
};

}  // namespace vesko::reference
