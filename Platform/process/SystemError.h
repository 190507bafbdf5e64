#pragma once

#include <cerrno>
#include <system_error>

namespace vesko {

/// The error that the last failed call of the operating system left on this thread.
[[nodiscard]] inline std::error_code lastSystemError() noexcept { return {errno, std::system_category()}; }

/// True when the process or the system has too little of something that others may give back before long.
[[nodiscard]] inline bool isShortageOfResources(const std::error_code& code) noexcept {
  return code == std::errc::too_many_files_open || code == std::errc::too_many_files_open_in_system ||
         code == std::errc::no_buffer_space || code == std::errc::not_enough_memory;
}

/// Makes a call of the operating system, again for as long as a signal interrupts it.
template <class Call>
[[nodiscard]] auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace vesko
