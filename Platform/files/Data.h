#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vesko {

class FileHandle;

/// Bytes in memory, or a stretch of an open file whose bytes have not been read into memory.
///
/// A value; any thread, one at a time. `isStretchOfFile` tells which of the two it is; `bytes` works for both. A
/// stretch shares the ownership of its file, so the file stays open until the last `Data` of it is gone. A socket can
/// thus send a chunk after the item that it came from has released the file, and a read into a file completes with the
/// stretch that now holds the received bytes.
class Data {
 public:
  Data() noexcept = default;
  explicit Data(std::string bytes) noexcept : bytes_(std::move(bytes)), length_(bytes_.size()) {}
  explicit Data(std::string_view bytes) : Data(std::string(bytes)) {}
  explicit Data(const char* text) : Data(std::string(text)) {}
  explicit Data(std::span<const std::uint8_t> bytes);

  /// The `length` bytes of `file` from `offset` on (both in bytes). Nothing is read or checked here: that the file is
  /// shorter shows when the bytes are used.
  [[nodiscard]] static Data stretchOfFile(std::shared_ptr<FileHandle> file, std::uint64_t offset, std::uint64_t length);

  /// In bytes, for both kinds.
  [[nodiscard]] std::uint64_t size() const noexcept { return length_; }
  [[nodiscard]] bool empty() const noexcept { return length_ == 0; }
  [[nodiscard]] bool isStretchOfFile() const noexcept { return file_ != nullptr; }

  /// The bytes in memory, valid until this `Data` changes or is gone. Requires: not a stretch of a file.
  [[nodiscard]] std::string_view view() const noexcept;

  /// A copy of all bytes; a stretch is read from its file. Throws `std::system_error` when that fails or the file ends
  /// too early.
  [[nodiscard]] std::vector<std::uint8_t> bytes() const;

  /// All bytes as two lower-case hexadecimal digits each. Throws as `bytes` does.
  [[nodiscard]] std::string hexEncodedString() const;

  /// Appends to the bytes in memory. Requires: not a stretch of a file.
  void append(std::string_view bytes);

  /// The file of a stretch, and the offset in it, in bytes; none and 0 for bytes in memory.
  [[nodiscard]] const std::shared_ptr<FileHandle>& file() const noexcept { return file_; }
  [[nodiscard]] std::uint64_t offset() const noexcept { return offset_; }

  /// Compares bytes in memory. Requires: neither is a stretch of a file.
  friend bool operator==(const Data& left, const Data& right) noexcept { return left.view() == right.view(); }

 private:
  std::string bytes_;
  std::shared_ptr<FileHandle> file_;
  std::uint64_t offset_ = 0;
  std::uint64_t length_ = 0;
};

}  // namespace vesko
