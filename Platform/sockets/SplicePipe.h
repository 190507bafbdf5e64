#pragma once

#include <cstdint>
#include <memory>
#include <system_error>
#include <utility>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

class FileHandle;

/// A pipe through which bytes go from a socket to a file inside the system, without being copied into this program
/// (splice(2)). On one queue at a time.
class SplicePipe {
 public:
  /// None when the system gives no pipe, or only one too small to be worth using.
  [[nodiscard]] static std::unique_ptr<SplicePipe> make();

  SplicePipe(FileDescriptor readingEnd, FileDescriptor writingEnd) noexcept
      : readingEnd_(std::move(readingEnd)), writingEnd_(std::move(writingEnd)) {}

  /// Moves up to `length` bytes from the socket into the pipe, as many as have arrived and fit. Returns their number; 0
  /// without an error is the end of the stream. Requires: the pipe is empty.
  [[nodiscard]] std::uint64_t takeFrom(int socket, std::uint64_t length, std::error_code& error);

  /// Writes everything in the pipe to `file`, at its offset.
  void handOnTo(FileHandle& file, std::error_code& error);

 private:
  void copyTo(FileHandle& file, std::error_code& error);

  FileDescriptor readingEnd_;
  FileDescriptor writingEnd_;
  std::uint64_t held_ = 0;  ///< bytes in the pipe
};

}  // namespace vesko
