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

/// One open file with a current offset.
///
/// Not locked: use it on one queue at a time. Closed at the latest with its last owner; a `Data` that is a stretch of
/// it is an owner too.
class FileHandle : public std::enable_shared_from_this<FileHandle> {
 public:
  explicit FileHandle(FileDescriptor descriptor, std::uint64_t length = 0) noexcept
      : descriptor_(std::move(descriptor)), knownLength_(length) {}

  /// Opens the regular file at `path` for reading at offset 0, following links. None, with `error` set, when it cannot
  /// be opened; `std::errc::invalid_argument` when it is something other than a regular file.
  [[nodiscard]] static std::shared_ptr<FileHandle> forReadingAtPath(const std::string& path, std::error_code& error);

  /// The same for a path that is relative to an open folder.
  [[nodiscard]] static std::shared_ptr<FileHandle> forReadingInFolder(int folder, const std::string& path,
                                                                      std::error_code& error);

  /// A handle whose writes go nowhere: the destination of a body that is to be read and dropped.
  [[nodiscard]] static std::shared_ptr<FileHandle> nullDevice(std::error_code& error);

  /// The next bytes from the current offset as a stretch of this file: `length` of them, fewer only at the end of the
  /// file; the offset moves past them. The file is not asked for its length where it was long enough before. Empty,
  /// with `error` set, when the file cannot be asked for its length.
  [[nodiscard]] Data readDataOfLength(std::uint64_t length, std::error_code& error);

  /// Fills `buffer` from `offset` on and returns the count, smaller than the buffer only at the end of the file or with
  /// `error` set. The current offset is neither used nor moved.
  [[nodiscard]] std::size_t readAt(std::uint64_t offset, std::span<char> buffer, std::error_code& error) const;

  /// Writes all of `bytes` at the current offset and moves it past what was written; with `error` set, that may be
  /// less.
  void writeData(std::string_view bytes, std::error_code& error);

  /// Moves `length` bytes that stand in a pipe to the current offset, without copying them where the system can, moves
  /// the offset past them and returns the count; with `error` set, that may be less. `std::errc::invalid_argument`: the
  /// file system does not take bytes that way.
  [[nodiscard]] std::uint64_t writeFromPipe(int readingEnd, std::uint64_t length, std::error_code& error);

  [[nodiscard]] std::uint64_t offsetInFile() const noexcept { return offset_; }

  /// Closes the file now; further use fails with `std::errc::bad_file_descriptor`.
  void closeFile() noexcept { descriptor_.reset(); }

  [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }

 private:
  FileDescriptor descriptor_;
  std::uint64_t knownLength_;  ///< bytes that the file had when it was last asked
  std::uint64_t offset_ = 0;
};

}  // namespace vesko
