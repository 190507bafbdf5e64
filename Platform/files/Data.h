#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vesko {

class FileHandle;

/// Bytes in memory, or a stretch of an open file that has not been brought into memory.
///
/// A value; it may be used on any thread, one at a time. A stretch keeps its file open for as long as it lives, so that
/// a socket can send it, or a reader ask for its bytes, after the owner of the file has let go.
class Data {
 public:
  Data() noexcept = default;
  explicit Data(std::string bytes) noexcept : bytes_(std::move(bytes)), length_(bytes_.size()) {}
  explicit Data(std::string_view bytes) : Data(std::string(bytes)) {}
  explicit Data(const char* text) : Data(std::string(text)) {}
  explicit Data(std::span<const std::uint8_t> bytes);

  /// The `length` bytes of `file` from `offset` on (both in bytes). Nothing is read, and nothing is checked: a file
  /// that turns out to be shorter shows when the bytes are used.
  [[nodiscard]] static Data stretchOfFile(std::shared_ptr<FileHandle> file, std::uint64_t offset, std::uint64_t length);

  [[nodiscard]] std::uint64_t size() const noexcept { return length_; }
  [[nodiscard]] bool empty() const noexcept { return length_ == 0; }
  [[nodiscard]] bool isStretchOfFile() const noexcept { return file_ != nullptr; }

  /// The bytes of a `Data` in memory, valid until it changes. Requires: not a stretch of a file.
  [[nodiscard]] std::string_view view() const noexcept;

  /// A copy of all bytes, in order; a stretch is read from its file. Throws `std::system_error` when that fails or the
  /// file ends before the stretch does.
  [[nodiscard]] std::vector<std::uint8_t> bytes() const;

  /// All bytes as text: two lower-case hexadecimal digits a byte. Throws as `bytes()` does.
  [[nodiscard]] std::string hexEncodedString() const;

  /// Appends to a `Data` in memory. Requires: not a stretch of a file.
  void append(std::string_view bytes);

  /// The file of a stretch, and where in it the stretch begins; null and 0 for bytes in memory.
  [[nodiscard]] const std::shared_ptr<FileHandle>& file() const noexcept { return file_; }
  [[nodiscard]] std::uint64_t offset() const noexcept { return offset_; }

  /// True when both hold the same bytes in memory. Requires: neither is a stretch of a file.
  friend bool operator==(const Data& left, const Data& right) noexcept { return left.view() == right.view(); }

 private:
  std::string bytes_;
  std::shared_ptr<FileHandle> file_;
  std::uint64_t offset_ = 0;
  std::uint64_t length_ = 0;
};

}  // namespace vesko
