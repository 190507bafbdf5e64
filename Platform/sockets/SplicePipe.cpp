#include "Platform/sockets/SplicePipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cassert>

#include "Platform/files/FileHandle.h"
#include "Platform/process/SystemError.h"

namespace vesko {

namespace {

/// Bytes; what the system grants a pipe without special rights (/proc/sys/fs/pipe-max-size).
constexpr int capacity = 1024 * 1024;

/// The default capacity (pipe(7)). A user with very many pipes gets less; then copying needs fewer system calls.
constexpr int leastCapacity = 64 * 1024;

}  // namespace

std::unique_ptr<SplicePipe> SplicePipe::make() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return nullptr;
  auto pipe = std::make_unique<SplicePipe>(FileDescriptor(ends[0]), FileDescriptor(ends[1]));
  int granted = ::fcntl(ends[1], F_SETPIPE_SZ, capacity);
  if (granted < 0) granted = ::fcntl(ends[1], F_GETPIPE_SZ);
  return granted < leastCapacity ? nullptr : std::move(pipe);
}

std::uint64_t SplicePipe::takeFrom(int socket, std::uint64_t length, std::error_code& error) {
  assert(held_ == 0);
  error.clear();
  const auto count = uninterrupted(
      [&] { return ::splice(socket, nullptr, writingEnd_.get(), nullptr, length, SPLICE_F_MOVE | SPLICE_F_NONBLOCK); });
  if (count < 0) error = lastSystemError();
  held_ = count < 0 ? 0 : static_cast<std::uint64_t>(count);
  return held_;
}

/// The pipe must be empty afterwards, or the rest would go into the file of the next body. An error loses the rest, but
/// then the transfer has failed anyway.
void SplicePipe::handOnTo(FileHandle& file, std::error_code& error) {
  held_ -= file.writeFromPipe(readingEnd_.get(), held_, error);
  // A file system that cannot take pages from a pipe takes copies.
  if (error == std::errc::invalid_argument) copyTo(file, error);
}

void SplicePipe::copyTo(FileHandle& file, std::error_code& error) {
  error.clear();
  std::array<char, 64 * 1024> buffer;
  while (held_ > 0 && !error) {
    const auto count = uninterrupted([&] { return ::read(readingEnd_.get(), buffer.data(), buffer.size()); });
    if (count <= 0) {
      error = count < 0 ? lastSystemError() : std::make_error_code(std::errc::io_error);
      return;
    }
    held_ -= static_cast<std::uint64_t>(count);
    file.writeData({buffer.data(), static_cast<std::size_t>(count)}, error);
  }
}

}  // namespace vesko
