#pragma once

#include <cerrno>
#include <system_error>

namespace vesko {

/// The error of the last failed system call on this thread.
[[nodiscard]] inline std::error_code lastSystemError() noexcept { return {errno, std::system_category()}; }

/// True for a shortage that may soon be over: of descriptors or of memory.
[[nodiscard]] inline bool isShortageOfResources(const std::error_code& code) noexcept {
  return code == std::errc::too_many_files_open || code == std::errc::too_many_files_open_in_system ||
         code == std::errc::no_buffer_space || code == std::errc::not_enough_memory;
}

/// Makes a system call, and makes it again while a signal interrupts it (EINTR).
template <class Call>
[[nodiscard]] auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace vesko
