#include "Platform/files/Data.h"

#include <cassert>
#include <system_error>

#include "Platform/files/FileHandle.h"

namespace vesko {

Data::Data(std::span<const std::uint8_t> bytes) : bytes_(bytes.begin(), bytes.end()), length_(bytes_.size()) {}

Data Data::stretchOfFile(std::shared_ptr<FileHandle> file, std::uint64_t offset, std::uint64_t length) {
  assert(file != nullptr);
  Data data;
  data.file_ = std::move(file);
  data.offset_ = offset;
  data.length_ = length;
  return data;
}

std::string_view Data::view() const noexcept {
  assert(!isStretchOfFile());
  return bytes_;
}

std::vector<std::uint8_t> Data::bytes() const {
  if (!isStretchOfFile()) return {bytes_.begin(), bytes_.end()};
  std::vector<std::uint8_t> copy(length_);
  std::error_code error;
  const auto count = file_->readAt(offset_, {reinterpret_cast<char*>(copy.data()), copy.size()}, error);
  if (!error && count < length_) error = std::make_error_code(std::errc::io_error);
  if (error) throw std::system_error(error, "reading a stretch of a file");
  return copy;
}

std::string Data::hexEncodedString() const {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const auto byte : bytes()) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

void Data::append(std::string_view bytes) {
  assert(!isStretchOfFile());
  bytes_.append(bytes);
  length_ = bytes_.size();
}

}  // namespace vesko
