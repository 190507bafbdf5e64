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
/// Everything is written into a hidden storage folder inside the downloads folder, which is made for the first element,
/// and is moved from there to names that are free (`settle`). All access is relative to open folders and follows no
/// link, so nothing outside them is touched, whatever a stream or another process does. On the transfer's queue only.
///
/// The storage folder is locked while the transfer lives. A start of the service deletes storage folders that nobody
/// has locked (`sweep`).
class ReceivedItemStorage {
 public:
  /// A removal is tried twice: the failure that ended the transfer may also prevent the removal, and be over a moment
  /// later.
  static constexpr int removalAttempts = 2;

  /// Up to this much is removed within milliseconds, so that it is not worth another queue.
  static constexpr std::uint64_t quicklyRemovedEntries = 100;
  static constexpr std::uint64_t quicklyRemovedBytes = 64ULL * 1024 * 1024;

  enum class Verdict : std::uint8_t {
    stored,   ///< the element can be stored
    dropped,  ///< this element cannot be created, but others can
    failed,   ///< the disk is full, or the disk or folder is unusable
  };

  struct Preparation {
    Verdict verdict = Verdict::stored;
    std::shared_ptr<FileHandle> file;  ///< of a file: open for writing at offset 0
    std::error_code error;
  };

  /// Chooses a name for the storage folder inside `basePath`: ".VeskoTransferIntermediateStorage", the start time as
  /// yyyyMMddhhmmss, and a text of `randomText` (32 letters and digits), chosen again while something has that name.
  /// Makes nothing yet. The first element makes the folder, and `basePath` if it is missing by then.
  ReceivedItemStorage(std::string basePath, std::chrono::system_clock::time_point startTime,
                      std::function<std::string()> randomText);

  /// Removes the storage folder, unless it was settled or given up.
  ~ReceivedItemStorage();

  ReceivedItemStorage(const ReceivedItemStorage&) = delete;
  ReceivedItemStorage& operator=(const ReceivedItemStorage&) = delete;

  /// The path of the storage folder, whether or not it exists. Final once the first element was prepared: if something
  /// takes the name before that, another one is chosen.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// Makes the folder of an element and the folders above it that are missing. A folder that exists is accepted. Here
  /// and below, an element is dropped when the file system takes its name, or that of a folder above it, for the name
  /// of an earlier element that is spelled differently. Requires, here and below: `name` is good by
  /// `TransferStream::checkName`.
  [[nodiscard]] Preparation prepareFolder(std::string_view name);

  /// Makes the file of an element and the folders above it that are missing. A file of the same name is replaced.
  /// `size` in bytes: when the disk has no room for it, the result is `std::errc::no_space_on_device` and no file is
  /// created.
  [[nodiscard]] Preparation prepareFile(std::string_view name, std::uint64_t size);

  /// Removes the file that was prepared last, because its body did not arrive completely. False when that fails; then
  /// nothing may be settled.
  [[nodiscard]] bool discardLastFile();

  /// Moves what arrived into the downloads folder, under names that are free; nothing is replaced. A single top-level
  /// entry keeps its name. Several, or one that is named like a storage folder, stay together in a folder "Received by
  /// Vesko at " and the start time. Where a name is taken, a counter from 2 on is added in parentheses.
  ///
  /// Returns the final path; "" when the storage folder was empty; none when it was never made, or when `error` is set,
  /// in which case the storage folder still exists.
  [[nodiscard]] std::optional<std::string> settle(std::error_code& error);

  /// Removes the storage folder with all its contents.
  void remove();

  /// True when `remove` would delay others on this queue: there are many entries, or more bytes than a file system
  /// frees quickly.
  [[nodiscard]] bool takesLongToRemove() const noexcept;

  /// Releases the storage folder and returns a function that removes it. The function may be called once, on any
  /// thread. No descriptor is held until then.
  [[nodiscard]] std::function<void()> giveUp();

  /// Removes the storage folders in `basePath` that ended processes have left: those with a name as above that belong
  /// to this user and that no process has locked. Returns how many. Any thread.
  static std::size_t sweep(const std::string& basePath);

 private:
  struct Place {
    std::shared_ptr<DirectoryHandle> folder;
    ReceivedItemSpellings::Folder number = ReceivedItemSpellings::top;  ///< by which its names are kept
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

  // At most three folders are open, however deep the tree. The last parent stays open because siblings usually follow
  // each other and then need no walk from the top.
  std::shared_ptr<DirectoryHandle> base_;
  std::shared_ptr<DirectoryHandle> root_;   ///< the storage folder; locked while it is open
  Place parent_;                            ///< the folder of the element that was prepared last
  std::vector<std::string> parentFolders_;  ///< the path from `root_` to `parent_`
  ReceivedItemSpellings spellings_;

  std::string lastFile_;                  ///< in `parent_`; "" when the element prepared last is no file
  std::uint64_t estimatedFreeBytes_ = 0;  ///< free bytes when last asked, less what was prepared since
  std::uint64_t entryCount_ = 0;          ///< entries made, replaced ones included
  std::uint64_t byteCount_ = 0;           ///< announced bytes of these entries
};

}  // namespace vesko
