#pragma once

#include <cstdint>
#include <memory>
#include <system_error>
#include <utility>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

class FileHandle;

/// A pipe of the system's through which bytes go from a socket to a file without being copied into the program
/// (splice(2)). On one queue at a time.
class SplicePipe {
 public:
  /// None where the system has no pipe to give, or none that would be of use.
  [[nodiscard]] static std::unique_ptr<SplicePipe> make();

  SplicePipe(FileDescriptor readingEnd, FileDescriptor writingEnd) noexcept
      : readingEnd_(std::move(readingEnd)), writingEnd_(std::move(writingEnd)) {}

  /// Takes up to `length` bytes that have arrived at the socket, as many as there is room for, and returns the count; 0
  /// without an error is the end of the stream. Requires: everything taken before has been handed on.
  [[nodiscard]] std::uint64_t takeFrom(int socket, std::uint64_t length, std::error_code& error);

  /// Writes everything that was taken to `file`, at its offset.
  void handOnTo(FileHandle& file, std::error_code& error);

 private:
  void copyTo(FileHandle& file, std::error_code& error);

  FileDescriptor readingEnd_;
  FileDescriptor writingEnd_;
  std::uint64_t held_ = 0;  ///< bytes
};

}  // namespace vesko
