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

/// Why the walk leaves something out, besides the errors of the system.
enum class VeskoItemErrc {
  lengthUnknown = 1,  ///< a file that is said to have 0 bytes, but holds some: those of /proc, say
  textName,           ///< the only element is called what a snippet of text is, which it would arrive as
  notAFolder,         ///< a path that ends in "/" leads to a file
  nameTaken,          ///< received: the disk takes its name for that of another element of the transfer
};

[[nodiscard]] std::error_code make_error_code(VeskoItemErrc code) noexcept;

/// Where elements of one folder are: its path on this machine, and the name it has in the stream. Shared by everything
/// directly inside, so that a listed element costs little more than its own last component.
struct VeskoItemFolder {
  std::string path;
  std::string name;
};

/// One element of an outgoing transfer. Made on any thread; afterwards only the transfer's queue uses it.
class VeskoItem {
 public:
  /// `size`: bytes this element adds to the transfer's total; `protocolSize`: the value of its size field.
  VeskoItem(std::string name, std::uint64_t size, std::uint64_t protocolSize);
  virtual ~VeskoItem() = default;
  VeskoItem(const VeskoItem&) = delete;
  VeskoItem& operator=(const VeskoItem&) = delete;

  /// The element's name as written in the stream: a relative path with "/" between its components.
  [[nodiscard]] std::string name() const;
  [[nodiscard]] std::uint64_t size() const noexcept { return size_; }
  [[nodiscard]] std::uint64_t protocolSize() const noexcept { return protocolSize_; }

  /// The next bytes of the element's body, empty when there are none or they cannot be had (`sourceError` tells).
  [[nodiscard]] virtual Data nextChunk();

  /// The element's header in the stream: name, a 0x00 byte, the size field.
  [[nodiscard]] virtual Data header() const;

  /// Why `nextChunk` could not give what it should have; no error while all is well. After an error nothing more comes.
  [[nodiscard]] virtual std::error_code sourceError() const { return {}; }

  /// Lets go of what is held open between two calls of `nextChunk`; nothing more is asked for.
  virtual void stopReading() noexcept {}

 protected:
  /// An element directly inside `folder`, or `folder` itself where `leaf` is empty.
  VeskoItem(std::shared_ptr<const VeskoItemFolder> folder, std::string leaf, std::uint64_t size,
            std::uint64_t protocolSize);
  [[nodiscard]] std::string path() const;

 private:
  std::shared_ptr<const VeskoItemFolder> folder_;
  std::string leaf_;
  std::uint64_t size_;
  std::uint64_t protocolSize_;
};

/// A folder. It has no body.
class VeskoDir : public VeskoItem {
 public:
  VeskoDir(std::string path, std::string name);
  explicit VeskoDir(std::shared_ptr<const VeskoItemFolder> folder);

  using VeskoItem::path;
};

/// A file, sent at the length it had when the item was made.
class VeskoFile : public VeskoItem {
 public:
  /// At most this many bytes (10 MiB) come from one call of `nextChunk`.
  static constexpr std::uint64_t chunkSize = 10'485'760;

  /// Named by the last component of `path`. Both ask the file system for the length, 0 where it cannot be had
  /// (`sourceError` then tells why).
  explicit VeskoFile(const std::string& path);
  VeskoFile(const std::string& path, std::string name);

  /// A file of `size` bytes directly inside `folder`, already known from listing it.
  VeskoFile(std::shared_ptr<const VeskoItemFolder> folder, std::string leaf, std::uint64_t size);

  using VeskoItem::path;

  /// The file while its body is being handed out.
  [[nodiscard]] const std::shared_ptr<FileHandle>& handle() const noexcept { return handle_; }

  /// The next stretch of the file, up to `chunkSize` and never beyond the listed length. The call that reaches the
  /// listed length lets go of the file (the stretch still holds it open); the one after that starts over.
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

/// A snippet of text, sent as the only element of its transfer.
class VeskoText : public VeskoItem {
 public:
  /// The longest snippet (64 MiB) that is received: it is kept in memory, so there is a bound, far above what a person
  /// copies. A longer one is sent, but breaks off at the other side.
  static constexpr std::uint64_t maximumLength = 64 * 1024 * 1024;

  /// `text`: UTF-8.
  explicit VeskoText(std::string text);
  ~VeskoText() override;

  [[nodiscard]] const Data& buffer() const noexcept { return *buffer_; }

  /// The whole text, on every call.
  [[nodiscard]] Data nextChunk() override;

 private:
  std::unique_ptr<const Data> buffer_;
};

using VeskoItems = std::vector<std::shared_ptr<VeskoItem>>;

}  // namespace vesko

template <>
struct std::is_error_code_enum<vesko::VeskoItemErrc> : std::true_type {};
