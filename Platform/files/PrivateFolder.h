#pragma once

#include <optional>
#include <string>
#include <system_error>

#include "Platform/files/DirectoryHandle.h"
#include "Platform/files/FileDescriptor.h"

namespace vesko {

/// A folder that nobody but the current user has any right to, held open. A `name` is one component. Errors are the
/// system's own codes. Any thread.
class PrivateFolder {
 public:
  /// Keeps other processes out of the folder, as far as they ask for the same, until it is destroyed.
  class Lock {
   public:
    explicit Lock(int folder) noexcept : folder_(folder) {}
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    int folder_;
  };

  /// Opens the folder at `path`, made when it is missing, but not what is above it. None, with `error` set, otherwise;
  /// to `std::errc::permission_denied` for a link, for what is no folder, and when others have any right to it.
  [[nodiscard]] static std::optional<PrivateFolder> open(const std::string& path, std::error_code& error);

  /// Waits for those who hold it. The folder must outlive it.
  [[nodiscard]] Lock lock() const noexcept;

  /// What has this name, links not followed.
  [[nodiscard]] FileIdentity identity(const std::string& name, std::error_code& error) const;

  /// Removes anything but a folder; nothing there is no failure.
  void remove(const std::string& name) const noexcept;

  /// Renames an entry, in place of what may have the new name.
  void rename(const std::string& name, const std::string& newName, std::error_code& error) const;

 private:
  explicit PrivateFolder(FileDescriptor descriptor) noexcept : descriptor_(std::move(descriptor)) {}

  FileDescriptor descriptor_;
};

}  // namespace vesko
