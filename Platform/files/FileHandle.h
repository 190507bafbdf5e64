#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform/files/Data.h"
#include "Platform/files/FileDescriptor.h"

namespace vesko {

/// An open file with a current offset.
///
/// The file is closed by `closeFile`, or with its last owner; a `Data` that is a stretch of the file is an owner too.
/// Not locked: use it on one queue at a time.
class FileHandle : public std::enable_shared_from_this<FileHandle> {
 public:
  explicit FileHandle(FileDescriptor descriptor, std::uint64_t length = 0) noexcept
      : descriptor_(std::move(descriptor)), knownLength_(length) {}

  /// Opens the regular file at `path` for reading at offset 0, links followed. None, with `error` set, when it cannot
  /// be opened; `std::errc::invalid_argument` when it is no regular file.
  [[nodiscard]] static std::shared_ptr<FileHandle> forReadingAtPath(const std::string& path, std::error_code& error);

  /// The same for a path relative to the open folder `folder`.
  [[nodiscard]] static std::shared_ptr<FileHandle> forReadingInFolder(int folder, const std::string& path,
                                                                      std::error_code& error);

  /// A handle to /dev/null, for a body that has to be read but is not stored.
  [[nodiscard]] static std::shared_ptr<FileHandle> nullDevice(std::error_code& error);

  /// Returns the next bytes from the current offset as a stretch of this file, and moves the offset past them: `length`
  /// bytes, fewer only at the end of the file. Nothing is read. The system is asked for the length of the file only
  /// when the stretch exceeds what was known. Empty, with `error` set, when that fails.
  [[nodiscard]] Data readDataOfLength(std::uint64_t length, std::error_code& error);

  /// Reads into `buffer` from `offset` on and returns the number of bytes: less than the buffer's size only at the end
  /// of the file or with `error` set. The current offset is neither used nor changed.
  [[nodiscard]] std::size_t readAt(std::uint64_t offset, std::span<char> buffer, std::error_code& error) const;

  /// Writes all of `bytes` at the current offset and moves it past them. With `error` set, fewer may have been written.
  void writeData(std::string_view bytes, std::error_code& error);

  /// Moves `length` bytes from a pipe to the current offset, by splice(2), and moves the offset past them. Returns the
  /// number of bytes; with `error` set it may be less. `std::errc::invalid_argument`: the file system does not support
  /// it.
  [[nodiscard]] std::uint64_t writeFromPipe(int readingEnd, std::uint64_t length, std::error_code& error);

  /// In bytes.
  [[nodiscard]] std::uint64_t offsetInFile() const noexcept { return offset_; }

  /// Closes the file at once. Further use fails with `std::errc::bad_file_descriptor`.
  void closeFile() noexcept { descriptor_.reset(); }

  [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }

 private:
  FileDescriptor descriptor_;
  std::uint64_t knownLength_;  ///< length in bytes when the system was last asked
  std::uint64_t offset_ = 0;
};

}  // namespace vesko
