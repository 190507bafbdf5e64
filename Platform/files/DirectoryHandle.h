#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

class FileHandle;

/// What an entry of a folder is. A symbolic link is `other`, unless links are followed.
enum class EntryKind : std::uint8_t { file, folder, other };

/// Device and inode: tell whether two entries are the same file or folder, whatever their names.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

/// The attributes of an entry.
struct FileAttributes {
  EntryKind kind = EntryKind::other;
  std::uint64_t size = 0;  ///< bytes
  FileIdentity identity;
  bool isOwnReadable = false;  ///< it belongs to the user of this process, who may read it
};

/// An open folder, and the operations on the entries directly inside it.
///
/// All operations are relative to the open folder (openat(2) and the like): somebody who renames or replaces a folder
/// above it cannot redirect them. A `name` is one component, without "/". A symbolic link with that name is not
/// followed unless said otherwise. Errors are the system's codes. Not locked: use it on one queue at a time.
class DirectoryHandle {
 public:
  /// Holds the folder's advisory lock (flock(2)) until it is destroyed.
  class Lock {
   public:
    explicit Lock(int folder) noexcept : folder_(folder) {}
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    int folder_;
  };

  explicit DirectoryHandle(FileDescriptor descriptor) noexcept;

  /// Opens the folder at `path`, links followed. None, with `error` set, when it cannot be opened for listing.
  [[nodiscard]] static std::shared_ptr<DirectoryHandle> open(const std::string& path, std::error_code& error);

  /// Opens the folder at `path`, and makes it with mode 0700 if it is missing, but not the folders above it. None, with
  /// `error` set, otherwise: `std::errc::permission_denied` for a link, for something that is no folder, and for a
  /// folder that anybody but the current user has any right to.
  [[nodiscard]] static std::shared_ptr<DirectoryHandle> openPrivate(const std::string& path, std::error_code& error);

  /// Opens a folder inside this one.
  [[nodiscard]] std::shared_ptr<DirectoryHandle> openFolder(const std::string& name, std::error_code& error) const;

  /// Opens a regular file inside this folder for reading, links followed; see `FileHandle::forReadingAtPath`.
  [[nodiscard]] std::shared_ptr<FileHandle> openFile(const std::string& name, std::error_code& error) const;

  /// Makes a folder of mode 0777 less the process's umask. `std::errc::file_exists` when the name is taken.
  void makeFolder(const std::string& name, std::error_code& error) const;

  /// Makes a file of mode 0666 less the process's umask and opens it for writing at offset 0. When anything has the
  /// name, even a link, the error is `std::errc::file_exists`.
  [[nodiscard]] std::shared_ptr<FileHandle> makeFile(const std::string& name, std::error_code& error) const;

  /// Removes anything but a folder.
  void removeFile(const std::string& name, std::error_code& error) const;

  /// Removes a folder that is empty.
  void removeEmptyFolder(const std::string& name, std::error_code& error) const;

  /// Removes whatever has this name, with everything inside, following no link. Goes on after an error and reports the
  /// first one. It is no error when nothing has the name.
  void removeTree(const std::string& name, std::error_code& error) const;

  /// The names of the entries, hidden ones included, without "." and "..", in the file system's order.
  [[nodiscard]] std::vector<std::string> contents(std::error_code& error) const;

  /// The attributes of an entry. `follow`: of what a symbolic link leads to.
  [[nodiscard]] FileAttributes attributes(const std::string& name, bool follow, std::error_code& error) const;

  /// True when this process may read the entry, links followed.
  [[nodiscard]] bool isReadable(const std::string& name) const;

  /// Which folder this is.
  [[nodiscard]] FileIdentity identity(std::error_code& error) const;

  /// True when the entry `name` is `folder` itself. False when it is gone, when it is a link or something else is in
  /// its place, or, with `error` set, when the file system does not tell.
  [[nodiscard]] bool leadsTo(const std::string& name, const DirectoryHandle& folder, std::error_code& error) const;

  /// True when the held folder belongs to the user this process runs as.
  [[nodiscard]] bool isOwnedByUser() const;

  /// Moves an entry into `target` under `newName`, in one step, and only if nothing has that name: otherwise the error
  /// is `std::errc::file_exists`. Both folders must be on the same file system.
  void moveWithoutReplacing(const std::string& name, const DirectoryHandle& target, const std::string& newName,
                            std::error_code& error) const;

  /// Renames an entry inside this folder; something that has the new name is replaced.
  void replace(const std::string& name, const std::string& newName, std::error_code& error) const;

  /// How many bytes this user may still store on the folder's file system; the largest number when it does not tell.
  [[nodiscard]] std::uint64_t freeBytes(std::error_code& error) const;

  /// Takes the folder's advisory lock (flock(2)) without waiting. False when another open handle has it or, with
  /// `error` set, when the file system has no such locks. The lock is released with the handle, and so also when the
  /// process ends in any way.
  [[nodiscard]] bool tryLock(std::error_code& error) const;

  /// Takes the same lock and waits for it if need be. This handle must outlive it.
  [[nodiscard]] Lock lock() const noexcept;

 private:
  FileDescriptor descriptor_;
  std::uint32_t userId_;  ///< the user of this process when the folder was opened
};

}  // namespace vesko
