#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Platform/files/DirectoryHandle.h"
#include "VeskoKit/ReceivedItemSpellings.h"

namespace vesko {

class FileHandle;

/// The disk side of one incoming transfer: the only code that writes received items.
///
/// Everything goes into a hidden storage folder of the transfer's own inside the downloads folder, made with the first
/// element, and moves from there under names that nothing has yet. All access is relative to held folders and follows
/// no link, so whatever a stream or another process does, nothing outside is touched. Used on the transfer's queue
/// only.
class ReceivedItemStorage {
 public:
  /// The failure that ended the transfer may be the one that stands in the way of a removal, and pass.
  static constexpr int removalAttempts = 2;

  /// What a disk removes within some milliseconds, which is less than handing it on is worth.
  static constexpr std::uint64_t quicklyRemovedEntries = 100;
  static constexpr std::uint64_t quicklyRemovedBytes = 64ULL * 1024 * 1024;

  enum class Verdict : std::uint8_t {
    stored,   ///< the element has its place
    dropped,  ///< this element cannot be created; others can
    failed,   ///< the disk or the folder is unusable, or full
  };

  struct Preparation {
    Verdict verdict = Verdict::stored;
    std::shared_ptr<FileHandle> file;  ///< for a file that is stored: open for writing at offset 0
    std::error_code error;
  };

  /// Chooses the storage folder's name inside `basePath`: ".VeskoTransferIntermediateStorage", the start time as
  /// yyyyMMddhhmmss and a text of `randomText` (32 letters and digits), drawn again while something of the name exists.
  /// Makes nothing yet; the first element also makes `basePath` if it is missing by then.
  ReceivedItemStorage(std::string basePath, std::chrono::system_clock::time_point startTime,
                      std::function<std::string()> randomText);

  /// Removes the storage folder unless it was settled.
  ~ReceivedItemStorage();

  ReceivedItemStorage(const ReceivedItemStorage&) = delete;
  ReceivedItemStorage& operator=(const ReceivedItemStorage&) = delete;

  /// The storage folder's path, whether or not it has been made. It is final once the first element is prepared: should
  /// somebody take the chosen name until then, another one is drawn.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// Makes the folder of an element, and missing ones above it; one that exists is accepted. Here and below, an element
  /// is dropped when the file system takes its name, or that of a folder above it, for another one that came before.
  /// Requires: `name` is good by `TransferStream::checkName`, here and below.
  [[nodiscard]] Preparation prepareFolder(std::string_view name);

  /// Makes the file of an element, and missing folders above it; a file of the same name gives way. An element of
  /// `size` bytes that the disk has no room for fails with `std::errc::no_space_on_device` before anything is created.
  [[nodiscard]] Preparation prepareFile(std::string_view name, std::uint64_t size);

  /// Removes the file prepared last, whose body did not arrive whole. False when it cannot: nothing may be settled
  /// then.
  [[nodiscard]] bool discardLastFile();

  /// Moves what arrived into the downloads folder: a single top-level entry under its own name, several, and one that
  /// is named as storage folders are, inside a folder "Received by Vesko at " and the start time, with a counter from 2
  /// on in parentheses where the name is taken. Never replaces anything. The final path; "" when nothing was in the
  /// storage folder; none when it was never made, or with `error` set (then the storage folder still stands).
  [[nodiscard]] std::optional<std::string> settle(std::error_code& error);

  /// Removes the storage folder with all it holds.
  void remove();

  /// True when `remove` would keep others on this queue waiting: of many entries, or of more bytes than a file system
  /// frees in a moment.
  [[nodiscard]] bool takesLongToRemove() const noexcept;

  /// Lets go of the storage folder, and leaves its removal to a task that may run anywhere, once. Until it does no
  /// descriptor is held.
  [[nodiscard]] std::function<void()> giveUp();

  /// Removes the storage folders that dead transfers left in `basePath`: folders of the name above that belong to this
  /// user and that no living process holds. The number removed.
  static std::size_t sweep(const std::string& basePath);

 private:
  struct Place {
    std::shared_ptr<DirectoryHandle> folder;
    ReceivedItemSpellings::Folder number = ReceivedItemSpellings::top;
  };

  void chooseName();
  [[nodiscard]] std::error_code makeStorageFolder();
  [[nodiscard]] bool hasRoomFor(std::uint64_t size);
  [[nodiscard]] std::string enterParentOf(std::string_view name, std::error_code& error);
  [[nodiscard]] std::error_code enterFolder(std::vector<std::string> folders);
  void noteEntry(const Place& parent, const std::string& name);
  void makeFolder(const Place& parent, const std::string& name, std::error_code& error);
  [[nodiscard]] Place openOrMakeFolder(const Place& parent, const std::string& name, std::error_code& error);
  [[nodiscard]] std::shared_ptr<FileHandle> makeFile(const std::string& name, std::error_code& error);
  void close() noexcept;

  std::string basePath_;
  std::chrono::system_clock::time_point startTime_;
  std::function<std::string()> randomText_;
  std::string name_;
  std::string path_;

  // Three folders are held whatever the depth: siblings, which usually come in a row, cost no walk from the top.
  std::shared_ptr<DirectoryHandle> base_;
  std::shared_ptr<DirectoryHandle> root_;   ///< the storage folder, locked while it is ours
  Place parent_;                            ///< of the element prepared last
  std::vector<std::string> parentFolders_;  ///< the way from `root_` to `parent_`
  ReceivedItemSpellings spellings_;

  std::string lastFile_;  ///< inside `parent_`; "" when the element prepared last is no file
  std::uint64_t estimatedFreeBytes_ = 0;
  std::uint64_t entryCount_ = 0;  ///< made, those that gave way included
  std::uint64_t byteCount_ = 0;   ///< that these were to hold
};

}  // namespace vesko
