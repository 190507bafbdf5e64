#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko {

class Data;
class FileHandle;

/// Errors of an element that are not errors of the system.
enum class VeskoItemErrc {
  lengthUnknown = 1,  ///< a file that is listed with 0 bytes but has some, as those of /proc do
  textName,           ///< the only element has the name reserved for texts, and would arrive as one
  notAFolder,         ///< a path that ends in "/" leads to a file
  nameTaken,          ///< received: the file system does not distinguish its name from that of another element
};

[[nodiscard]] std::error_code make_error_code(VeskoItemErrc code) noexcept;

/// A folder whose entries are sent: its path on this machine and its name in the stream. All elements directly inside
/// share one object, so that a listed element takes little more memory than its own last component.
struct VeskoItemFolder {
  std::string path;
  std::string name;
};

/// One element of an outgoing transfer: a `VeskoDir`, `VeskoFile` or `VeskoText`. Made on any thread; once the transfer
/// has started, only the transfer's queue uses it. An element belongs to one transfer at a time.
class VeskoItem {
 public:
  /// `size`: bytes of the body, which count in the transfer's total. `protocolSize`: the value of the size field in the
  /// stream, which is the same but for folders.
  VeskoItem(std::string name, std::uint64_t size, std::uint64_t protocolSize);
  virtual ~VeskoItem() = default;
  VeskoItem(const VeskoItem&) = delete;
  VeskoItem& operator=(const VeskoItem&) = delete;

  /// The element's name in the stream: a relative path with "/" between its components.
  [[nodiscard]] std::string name() const;
  [[nodiscard]] std::uint64_t size() const noexcept { return size_; }
  [[nodiscard]] std::uint64_t protocolSize() const noexcept { return protocolSize_; }

  /// The next bytes of the body. Empty when all were handed out or when they cannot be read; `sourceError` tells which.
  [[nodiscard]] virtual Data nextChunk();

  /// The element's header in the stream: name, a 0x00 byte, size field (8 bytes, little-endian).
  [[nodiscard]] virtual Data header() const;

  /// Why the last `nextChunk` could not read what it should have; no error otherwise. After an error nothing more can
  /// be read.
  [[nodiscard]] virtual std::error_code sourceError() const { return {}; }

  /// Closes what is held open between two calls of `nextChunk`. Called when the transfer ends inside this element.
  virtual void stopReading() noexcept {}

 protected:
  /// An element directly inside `folder`, or `folder` itself when `leaf` is empty.
  VeskoItem(std::shared_ptr<const VeskoItemFolder> folder, std::string leaf, std::uint64_t size,
            std::uint64_t protocolSize);
  [[nodiscard]] std::string path() const;

 private:
  std::shared_ptr<const VeskoItemFolder> folder_;
  std::string leaf_;
  std::uint64_t size_;
  std::uint64_t protocolSize_;
};

/// A folder. It has no body, and does not include what is inside: each entry is an element of its own.
class VeskoDir : public VeskoItem {
 public:
  VeskoDir(std::string path, std::string name);
  explicit VeskoDir(std::shared_ptr<const VeskoItemFolder> folder);

  using VeskoItem::path;
};

/// A file. Exactly as many bytes are sent as it had when the item was made: bytes that were appended later are left
/// out, and a file that has become shorter fails the transfer with "sourceChanged".
class VeskoFile : public VeskoItem {
 public:
  /// One call of `nextChunk` returns at most this many bytes (10 MiB).
  static constexpr std::uint64_t chunkSize = 10'485'760;

  /// The file at `path`, with the last component of `path` or with `name` as its name in the stream. Both ask the file
  /// system for the length. When it cannot be had, `size` is 0 and `sourceError` tells why.
  explicit VeskoFile(const std::string& path);
  VeskoFile(const std::string& path, std::string name);

  /// A file of `size` bytes directly inside `folder`. The file system is not asked again.
  VeskoFile(std::shared_ptr<const VeskoItemFolder> folder, std::string leaf, std::uint64_t size);

  using VeskoItem::path;

  /// The open file, from the first chunk up to the last; none otherwise.
  [[nodiscard]] const std::shared_ptr<FileHandle>& handle() const noexcept { return handle_; }

  /// The next chunk, as a stretch of the open file: nothing is read here. The call that reaches the listed length
  /// releases the file, which the returned chunk then keeps open. The call after that begins again at the start.
  [[nodiscard]] Data nextChunk() override;
  [[nodiscard]] std::error_code sourceError() const override { return error_; }
  void stopReading() noexcept override { handle_.reset(); }

 private:
  struct Length {
    std::uint64_t bytes = 0;
    std::error_code error;
  };
  VeskoFile(std::shared_ptr<const VeskoItemFolder> folder, const Length& length);
  [[nodiscard]] static Length lengthOfFile(const std::string& path);

  std::shared_ptr<FileHandle> handle_;
  std::error_code error_;
};

/// A text, sent as the only element of its transfer.
class VeskoText : public VeskoItem {
 public:
  /// The longest text that is received: 64 MiB, inclusive. A received text is kept in memory, so it needs a bound; this
  /// one is far above what people copy. A longer text is sent all the same, but the receiver ends the transfer.
  static constexpr std::uint64_t maximumLength = 64 * 1024 * 1024;

  /// `text`: UTF-8.
  explicit VeskoText(std::string text);
  ~VeskoText() override;

  [[nodiscard]] const Data& buffer() const noexcept { return *buffer_; }

  /// The whole text, with every call.
  [[nodiscard]] Data nextChunk() override;

 private:
  std::unique_ptr<const Data> buffer_;
};

using VeskoItems = std::vector<std::shared_ptr<VeskoItem>>;

}  // namespace vesko

template <>
struct std::is_error_code_enum<vesko::VeskoItemErrc> : std::true_type {};
