#include "VeskoKit/VeskoItem.h"

#include <algorithm>
#include <utility>

#include "Platform/files/Data.h"
#include "Platform/files/FileHandle.h"
#include "Platform/files/FileManager.h"
#include "Platform/sockets/SocketError.h"
#include "VeskoKit/PathText.h"
#include "VeskoKit/TransferStream.h"

namespace vesko {
namespace {

class ItemCategory : public std::error_category {
 public:
  [[nodiscard]] const char* name() const noexcept override { return "vesko.item"; }

  [[nodiscard]] std::string message(int code) const override {
    switch (static_cast<VeskoItemErrc>(code)) {
      case VeskoItemErrc::lengthUnknown:
        return "its length is not known in advance (it says 0 bytes, but holds some)";
      case VeskoItemErrc::textName:
        return "by itself it would arrive as a text; put it into a folder and send that";
      case VeskoItemErrc::notAFolder:
        return "it is a file, not a folder";
      case VeskoItemErrc::nameTaken:
        return "the disk takes its name for that of something else in this transfer";
    }
    return "unknown error " + std::to_string(code);
  }
};

std::shared_ptr<const VeskoItemFolder> makeFolder(std::string path, std::string name) {
  return std::make_shared<const VeskoItemFolder>(VeskoItemFolder{std::move(path), std::move(name)});
}

}  // namespace

std::error_code make_error_code(VeskoItemErrc code) noexcept {
  static const ItemCategory category;
  return {static_cast<int>(code), category};
}

VeskoItem::VeskoItem(std::string name, std::uint64_t size, std::uint64_t protocolSize)
    : leaf_(std::move(name)), size_(size), protocolSize_(protocolSize) {}

VeskoItem::VeskoItem(std::shared_ptr<const VeskoItemFolder> folder, std::string leaf, std::uint64_t size,
                     std::uint64_t protocolSize)
    : folder_(std::move(folder)), leaf_(std::move(leaf)), size_(size), protocolSize_(protocolSize) {}

std::string VeskoItem::name() const {
  if (!folder_) return leaf_;
  return leaf_.empty() ? folder_->name : stringByAppendingPathComponent(folder_->name, leaf_);
}

std::string VeskoItem::path() const {
  return leaf_.empty() ? folder_->path : stringByAppendingPathComponent(folder_->path, leaf_);
}

Data VeskoItem::nextChunk() { return {}; }

Data VeskoItem::header() const { return TransferStream::encodeHeader(name(), protocolSize_); }

VeskoDir::VeskoDir(std::string path, std::string name) : VeskoDir(makeFolder(std::move(path), std::move(name))) {}

VeskoDir::VeskoDir(std::shared_ptr<const VeskoItemFolder> folder)
    : VeskoItem(std::move(folder), {}, 0, TransferStream::folderMark) {}

VeskoFile::VeskoFile(const std::string& path) : VeskoFile(path, lastPathComponent(path)) {}

VeskoFile::VeskoFile(const std::string& path, std::string name)
    : VeskoFile(makeFolder(path, std::move(name)), lengthOfFile(path)) {}

VeskoFile::VeskoFile(std::shared_ptr<const VeskoItemFolder> folder, std::string leaf, std::uint64_t size)
    : VeskoItem(std::move(folder), std::move(leaf), size, size) {}

VeskoFile::VeskoFile(std::shared_ptr<const VeskoItemFolder> folder, const Length& length)
    : VeskoItem(std::move(folder), {}, length.bytes, length.bytes), error_(length.error) {}

VeskoFile::Length VeskoFile::lengthOfFile(const std::string& path) {
  std::error_code error;
  const std::uint64_t length = FileManager::sizeOfFileAtPath(path, error);
  return {length, error};
}

/// The file of a body that is being sent has up to three owners: this item, the chunk that the transfer has just taken,
/// and the socket's queue of writes, which the chunk is moved to. The last of them closes it. When all goes well that
/// is the queue: this item releases the file with its last chunk. When the transfer ends early, the socket drops its
/// queue and `stopReading` releases the file here.
Data VeskoFile::nextChunk() {
  if (error_) return {};
  if (!handle_) handle_ = FileHandle::forReadingAtPath(path(), error_);
  if (!handle_) return {};
  const std::uint64_t length = std::min(chunkSize, size() - handle_->offsetInFile());
  Data chunk = handle_->readDataOfLength(length, error_);
  if (!error_ && chunk.size() < length) error_ = SocketErrc::sourceEnded;
  if (error_ || handle_->offsetInFile() >= size()) handle_.reset();
  return chunk;
}

VeskoText::VeskoText(std::string text)
    : VeskoItem(std::string(TransferStream::textName), text.size(), text.size()),
      buffer_(std::make_unique<const Data>(std::move(text))) {}

VeskoText::~VeskoText() = default;

Data VeskoText::nextChunk() { return *buffer_; }

}  // namespace vesko
