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

/// What an entry of a folder is; a symbolic link is `other` where links are not followed.
enum class EntryKind : std::uint8_t { file, folder, other };

/// Which folder or file this is, whatever it is called (device and inode).
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
  bool isOwnReadable = false;  ///< it belongs to the user this process runs as, who may read it
};

/// One folder, held open, and what can be done with the entries directly inside it.
///
/// Everything is relative to the held folder, so nobody who renames or replaces a folder above it can redirect the
/// work. A `name` is one component, without "/"; a symbolic link of that name is never followed unless said otherwise.
/// Not locked: use it on one queue at a time. Errors are the system's own codes.
class DirectoryHandle {
 public:
  /// Keeps other processes out of a folder, as far as they ask for the same, until it is destroyed.
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

  /// Opens the folder at `path`, following links. None, with `error` set, when it cannot be opened for listing.
  [[nodiscard]] static std::shared_ptr<DirectoryHandle> open(const std::string& path, std::error_code& error);

  /// Opens the folder at `path`, made when it is missing with mode 0700, but not what is above it. None, with `error`
  /// set, otherwise; to `std::errc::permission_denied` for a link, for what is no folder, and when anybody but the
  /// current user has any right to it.
  [[nodiscard]] static std::shared_ptr<DirectoryHandle> openPrivate(const std::string& path, std::error_code& error);

  /// Opens a folder inside this one.
  [[nodiscard]] std::shared_ptr<DirectoryHandle> openFolder(const std::string& name, std::error_code& error) const;

  /// Opens a regular file directly inside this one for reading, as `FileHandle::forReadingAtPath` does, links followed.
  [[nodiscard]] std::shared_ptr<FileHandle> openFile(const std::string& name, std::error_code& error) const;

  /// Makes a folder; the modes left by the process's umask of 0777. `std::errc::file_exists` when the name is taken.
  void makeFolder(const std::string& name, std::error_code& error) const;

  /// Makes a new file, open for writing at offset 0; modes as umask leaves of 0666. Never opens or follows anything
  /// that is there: `std::errc::file_exists` then.
  [[nodiscard]] std::shared_ptr<FileHandle> makeFile(const std::string& name, std::error_code& error) const;

  /// Removes anything but a folder.
  void removeFile(const std::string& name, std::error_code& error) const;

  /// Removes a folder that is empty.
  void removeEmptyFolder(const std::string& name, std::error_code& error) const;

  /// Removes whatever has this name, with everything inside, following no link. Goes on after a failure and reports the
  /// first one; nothing there is no failure.
  void removeTree(const std::string& name, std::error_code& error) const;

  /// The names of the direct entries, hidden ones included, without "." and "..", in the file system's order.
  [[nodiscard]] std::vector<std::string> contents(std::error_code& error) const;

  /// The attributes of an entry; `follow` asks for those of what a symbolic link leads to.
  [[nodiscard]] FileAttributes attributes(const std::string& name, bool follow, std::error_code& error) const;

  /// True when this process may read the entry, links followed.
  [[nodiscard]] bool isReadable(const std::string& name) const;

  [[nodiscard]] FileIdentity identity(std::error_code& error) const;

  /// True when the entry is `folder` itself; false when it is gone, a link to it or what somebody has put in its place
  /// or, with `error` set, when that cannot be told.
  [[nodiscard]] bool leadsTo(const std::string& name, const DirectoryHandle& folder, std::error_code& error) const;

  /// True when the held folder belongs to the user this process runs as.
  [[nodiscard]] bool isOwnedByUser() const;

  /// Moves an entry into `target` under `newName`, in one step and only if nothing of that name is there:
  /// `std::errc::file_exists` otherwise. Both must be on one file system.
  void moveWithoutReplacing(const std::string& name, const DirectoryHandle& target, const std::string& newName,
                            std::error_code& error) const;

  /// Renames an entry inside this folder, in place of what may have the new name.
  void replace(const std::string& name, const std::string& newName, std::error_code& error) const;

  /// Bytes that may still be stored on the folder's file system; the largest number where it does not say.
  [[nodiscard]] std::uint64_t freeBytes(std::error_code& error) const;

  /// Takes the folder's advisory lock without waiting; false when another open handle holds it or, with `error` set,
  /// when the file system has no such locks. It is released with the handle, so also when the process dies.
  [[nodiscard]] bool tryLock(std::error_code& error) const;

  /// Takes the same lock, waiting for those who hold it. This handle must outlive it.
  [[nodiscard]] Lock lock() const noexcept;

 private:
  FileDescriptor descriptor_;
  std::uint32_t userId_;  ///< as whom this process ran when it opened the folder
};

}  // namespace vesko
