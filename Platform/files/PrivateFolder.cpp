#include "Platform/files/PrivateFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "Platform/process/SystemError.h"
#include "Platform/user/Account.h"

namespace vesko {
namespace {

constexpr mode_t rightsOfOthers = S_IRWXG | S_IRWXO;

FileDescriptor openFolder(const std::string& path, std::error_code& error) {
  FileDescriptor folder(
      uninterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
  if (folder) return folder;
  error = lastSystemError();
  // How a link and what is no folder are reported differs from kernel to kernel; to us both are somebody's trap.
  if (error == std::errc::not_a_directory || error == std::errc::too_many_symbolic_link_levels) {
    error = std::make_error_code(std::errc::permission_denied);
  }
  return folder;
}

std::error_code reasonAgainst(const FileDescriptor& folder) {
  struct stat status {};
  if (::fstat(folder.get(), &status) < 0) return lastSystemError();
  const bool isPrivate = status.st_uid == userId() && (status.st_mode & rightsOfOthers) == 0;
  return isPrivate ? std::error_code() : std::make_error_code(std::errc::permission_denied);
}

}  // namespace

std::optional<PrivateFolder> PrivateFolder::open(const std::string& path, std::error_code& error) {
  error.clear();
  // Whatever is there already, and whoever made it, is judged by what opening it finds.
  if (::mkdir(path.c_str(), S_IRWXU) < 0 && errno != EEXIST) {
    error = lastSystemError();
    return std::nullopt;
  }
  FileDescriptor folder = openFolder(path, error);
  if (!error) error = reasonAgainst(folder);
  if (error) return std::nullopt;
  return PrivateFolder(std::move(folder));
}

PrivateFolder::Lock PrivateFolder::lock() const noexcept {
  // A file system without locks leaves only the harmless race of two processes that begin at the same moment.
  (void)uninterrupted([&] { return ::flock(descriptor_.get(), LOCK_EX); });
  return Lock(descriptor_.get());
}

PrivateFolder::Lock::~Lock() { ::flock(folder_, LOCK_UN); }

FileIdentity PrivateFolder::identity(const std::string& name, std::error_code& error) const {
  struct stat status {};
  error.clear();
  if (::fstatat(descriptor_.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0) error = lastSystemError();
  return {status.st_dev, status.st_ino};
}

void PrivateFolder::remove(const std::string& name) const noexcept { ::unlinkat(descriptor_.get(), name.c_str(), 0); }

void PrivateFolder::rename(const std::string& name, const std::string& newName, std::error_code& error) const {
  error.clear();
  if (::renameat(descriptor_.get(), name.c_str(), descriptor_.get(), newName.c_str()) < 0) error = lastSystemError();
}

}  // namespace vesko
