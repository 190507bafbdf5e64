#include "Platform/user/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace vesko::Terminal {
namespace {

int descriptorOf(Stream stream) noexcept {
  switch (stream) {
    case Stream::input:
      return STDIN_FILENO;
    case Stream::output:
      return STDOUT_FILENO;
    case Stream::error:
      break;
  }
  return STDERR_FILENO;
}

}  // namespace

bool isTerminal(Stream stream) noexcept { return ::isatty(descriptorOf(stream)) == 1; }

std::optional<std::size_t> columns(Stream stream) noexcept {
  winsize size{};
  if (::ioctl(descriptorOf(stream), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
  return size.ws_col;
}

}  // namespace vesko::Terminal
