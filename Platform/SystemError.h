#pragma once

#include <cerrno>
#include <system_error>

namespace vesko {

/// The error that the last failed call of the operating system left on this thread.
[[nodiscard]] inline std::error_code lastSystemError() noexcept { return {errno, std::system_category()}; }

/// Makes a call of the operating system, again for as long as a signal interrupts it.
template <class Call>
[[nodiscard]] auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace vesko
