#include "Platform/files/DirectoryHandle.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cassert>
#include <cstdio>
#include <limits>
#include <string_view>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "Platform/process/SystemError.h"

namespace vesko {
namespace {

/// O_NOFOLLOW: a folder that somebody replaces by a link is an error and leads nowhere else.
constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

void setOnFailure(int result, std::error_code& error) {
  if (result < 0) {
    error = lastSystemError();
  } else {
    error.clear();
  }
}

[[maybe_unused]] bool isComponent(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

FileIdentity identityOf(const struct stat& status) { return {status.st_dev, status.st_ino}; }

FileDescriptor openFolderAt(int folder, const char* name, std::error_code& error) {
  FileDescriptor descriptor(uninterrupted([&] { return ::openat(folder, name, folderFlags); }));
  setOnFailure(descriptor.get(), error);
  return descriptor;
}

struct CloseStream {
  void operator()(DIR* stream) const noexcept { ::closedir(stream); }
};

std::vector<std::string> contentsOf(int folder, std::error_code& error) {
  std::vector<std::string> names;
  // A descriptor of its own: the held one must keep its position, and closing the stream closes its descriptor.
  auto descriptor = openFolderAt(folder, ".", error);
  if (error) return names;
  const std::unique_ptr<DIR, CloseStream> stream(::fdopendir(descriptor.get()));
  if (stream == nullptr) {
    error = lastSystemError();
    return names;
  }
  (void)descriptor.release();
  errno = 0;
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
    errno = 0;
  }
  if (errno != 0) error = lastSystemError();
  return names;
}

/// Removes an entry with everything in it. Only one folder is open at a time, however deep the tree is, so that a deep
/// tree cannot exhaust the descriptors. The way up is "..", which is checked: if somebody has moved the current folder,
/// ".." leads to a foreign one, and the removal stops.
class TreeRemoval {
 public:
  explicit TreeRemoval(int base) noexcept : base_(base) {}

  /// The first error, after everything that could be removed has been.
  [[nodiscard]] std::error_code run(std::string name) {
    removeEntry(base_, std::move(name));
    while (!levels_.empty() && !lost_) {
      auto& pending = levels_.back().pending;
      if (pending.empty()) {
        leave();
      } else {
        auto next = std::move(pending.back());
        pending.pop_back();
        removeEntry(current_.get(), std::move(next));
      }
    }
    return firstError_;
  }

 private:
  struct Level {
    std::string name;
    FileIdentity identity;
    std::vector<std::string> pending;
  };

  void removeEntry(int folder, std::string name) {
    if (::unlinkat(folder, name.c_str(), 0) == 0) return;
    if (errno != EISDIR) return note(lastSystemError());
    // Removing an empty folder needs no descriptor, and descriptors may have run out.
    if (::unlinkat(folder, name.c_str(), AT_REMOVEDIR) != 0) enter(folder, std::move(name));
  }

  void enter(int parent, std::string name) {
    std::error_code error;
    auto descriptor = openFolderAt(parent, name.c_str(), error);
    if (error == std::errc::permission_denied && ::fchmodat(parent, name.c_str(), S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0) {
      descriptor = openFolderAt(parent, name.c_str(), error);
    }
    struct stat status {};
    if (!error) setOnFailure(::fstat(descriptor.get(), &status), error);
    // A file system that is mounted inside the tree is not part of it and is left alone.
    if (!error && !levels_.empty() && identityOf(status).device != levels_.front().identity.device) {
      error = std::make_error_code(std::errc::cross_device_link);
    }
    if (error) return note(error);
    // Entries can be removed only from a writable folder. If the mode cannot be changed, the removal reports why.
    if ((status.st_mode & S_IRWXU) != S_IRWXU) (void)::fchmod(descriptor.get(), S_IRWXU);
    auto names = contentsOf(descriptor.get(), error);
    note(error);
    levels_.push_back({std::move(name), identityOf(status), std::move(names)});
    current_ = std::move(descriptor);
  }

  void leave() {
    const auto name = std::move(levels_.back().name);
    levels_.pop_back();
    FileDescriptor parent;
    if (!levels_.empty()) {
      parent = openParent();
      if (!parent) return;
    }
    if (::unlinkat(parent ? parent.get() : base_, name.c_str(), AT_REMOVEDIR) != 0) note(lastSystemError());
    current_ = std::move(parent);
  }

  FileDescriptor openParent() {
    std::error_code error;
    auto parent = openFolderAt(current_.get(), "..", error);
    struct stat status {};
    if (!error) setOnFailure(::fstat(parent.get(), &status), error);
    if (!error && identityOf(status) != levels_.back().identity) {
      error = {ESTALE, std::system_category()};
    }
    if (!error) return parent;
    note(error);
    lost_ = true;
    return {};
  }

  void note(std::error_code error) {
    if (!firstError_ && error != std::errc::no_such_file_or_directory) firstError_ = error;
  }

  int base_;
  FileDescriptor current_;
  std::vector<Level> levels_;
  std::error_code firstError_;
  bool lost_ = false;  ///< somebody moved the folder we are in
};

bool isUnknownToFileSystem(std::error_code error) {
  return error == std::errc::invalid_argument || error == std::errc::function_not_supported ||
         error == std::errc::operation_not_supported;
}

}  // namespace

DirectoryHandle::DirectoryHandle(FileDescriptor descriptor) noexcept
    : descriptor_(std::move(descriptor)), userId_(::geteuid()) {}

std::shared_ptr<DirectoryHandle> DirectoryHandle::open(const std::string& path, std::error_code& error) {
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  FileDescriptor descriptor(uninterrupted([&] { return ::open(path.c_str(), flags); }));
  setOnFailure(descriptor.get(), error);
  return error ? nullptr : std::make_shared<DirectoryHandle>(std::move(descriptor));
}

std::shared_ptr<DirectoryHandle> DirectoryHandle::openPrivate(const std::string& path, std::error_code& error) {
  setOnFailure(::mkdir(path.c_str(), S_IRWXU), error);
  // An entry that exists is opened and checked: it may belong to another user, or be a link.
  if (error && error != std::errc::file_exists) return nullptr;
  auto descriptor = openFolderAt(AT_FDCWD, path.c_str(), error);
  struct stat status {};
  if (!error) setOnFailure(::fstat(descriptor.get(), &status), error);
  const bool isShared = status.st_uid != ::geteuid() || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0;
  // Kernels differ in the error for a link and for something that is no folder. Here both may be an attack.
  const bool isNoFolder = error == std::errc::not_a_directory || error == std::errc::too_many_symbolic_link_levels;
  if (isNoFolder || (!error && isShared)) error = std::make_error_code(std::errc::permission_denied);
  return error ? nullptr : std::make_shared<DirectoryHandle>(std::move(descriptor));
}

std::shared_ptr<DirectoryHandle> DirectoryHandle::openFolder(const std::string& name, std::error_code& error) const {
  assert(isComponent(name));
  auto descriptor = openFolderAt(descriptor_.get(), name.c_str(), error);
  return error ? nullptr : std::make_shared<DirectoryHandle>(std::move(descriptor));
}

std::shared_ptr<FileHandle> DirectoryHandle::openFile(const std::string& name, std::error_code& error) const {
  assert(isComponent(name));
  return FileHandle::forReadingInFolder(descriptor_.get(), name, error);
}

void DirectoryHandle::makeFolder(const std::string& name, std::error_code& error) const {
  assert(isComponent(name));
  setOnFailure(::mkdirat(descriptor_.get(), name.c_str(), S_IRWXU | S_IRWXG | S_IRWXO), error);
}

std::shared_ptr<FileHandle> DirectoryHandle::makeFile(const std::string& name, std::error_code& error) const {
  assert(isComponent(name));
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  const mode_t mode = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
  FileDescriptor file(uninterrupted([&] { return ::openat(descriptor_.get(), name.c_str(), flags, mode); }));
  setOnFailure(file.get(), error);
  return error ? nullptr : std::make_shared<FileHandle>(std::move(file));
}

void DirectoryHandle::removeFile(const std::string& name, std::error_code& error) const {
  assert(isComponent(name));
  setOnFailure(::unlinkat(descriptor_.get(), name.c_str(), 0), error);
}

void DirectoryHandle::removeEmptyFolder(const std::string& name, std::error_code& error) const {
  assert(isComponent(name));
  setOnFailure(::unlinkat(descriptor_.get(), name.c_str(), AT_REMOVEDIR), error);
}

void DirectoryHandle::removeTree(const std::string& name, std::error_code& error) const {
  assert(isComponent(name));
  error = TreeRemoval(descriptor_.get()).run(name);
}

std::vector<std::string> DirectoryHandle::contents(std::error_code& error) const {
  return contentsOf(descriptor_.get(), error);
}

FileAttributes DirectoryHandle::attributes(const std::string& name, bool follow, std::error_code& error) const {
  assert(isComponent(name));
  struct stat status {};
  setOnFailure(::fstatat(descriptor_.get(), name.c_str(), &status, follow ? 0 : AT_SYMLINK_NOFOLLOW), error);
  if (error) return {};
  const auto kind = S_ISREG(status.st_mode)   ? EntryKind::file
                    : S_ISDIR(status.st_mode) ? EntryKind::folder
                                              : EntryKind::other;
  const bool isOwnReadable = (status.st_mode & S_IRUSR) != 0 && status.st_uid == userId_;
  return {kind, static_cast<std::uint64_t>(status.st_size), identityOf(status), isOwnReadable};
}

bool DirectoryHandle::isReadable(const std::string& name) const {
  assert(isComponent(name));
  return ::faccessat(descriptor_.get(), name.c_str(), R_OK, AT_EACCESS) == 0;
}

FileIdentity DirectoryHandle::identity(std::error_code& error) const {
  struct stat status {};
  setOnFailure(::fstat(descriptor_.get(), &status), error);
  return error ? FileIdentity{} : identityOf(status);
}

bool DirectoryHandle::leadsTo(const std::string& name, const DirectoryHandle& folder, std::error_code& error) const {
  const auto found = attributes(name, false, error);
  if (error) {
    if (error == std::errc::no_such_file_or_directory) error.clear();
    return false;
  }
  const auto identity = folder.identity(error);
  return !error && found.identity == identity;
}

bool DirectoryHandle::isOwnedByUser() const {
  struct stat status {};
  return ::fstat(descriptor_.get(), &status) == 0 && status.st_uid == userId_;
}

void DirectoryHandle::moveWithoutReplacing(const std::string& name, const DirectoryHandle& target,
                                           const std::string& newName, std::error_code& error) const {
  assert(isComponent(name) && isComponent(newName));
  const int from = descriptor_.get();
  const int to = target.descriptor_.get();
  setOnFailure(::renameat2(from, name.c_str(), to, newName.c_str(), RENAME_NOREPLACE), error);
  if (!isUnknownToFileSystem(error)) return;
  // This file system cannot rename without replacing. So the name is reserved by an entry of our own, and the rename
  // replaces only that.
  const bool isFolder = attributes(name, false, error).kind == EntryKind::folder;
  if (error) return;
  if (isFolder) {
    target.makeFolder(newName, error);
  } else {
    (void)target.makeFile(newName, error);
  }
  if (error) return;
  setOnFailure(::renameat(from, name.c_str(), to, newName.c_str()), error);
  if (!error) return;
  (void)::unlinkat(to, newName.c_str(), isFolder ? AT_REMOVEDIR : 0);
  // Another process has put something into the reserved folder; it is kept, and another name is tried.
  if (error == std::errc::directory_not_empty) error = std::make_error_code(std::errc::file_exists);
}

void DirectoryHandle::replace(const std::string& name, const std::string& newName, std::error_code& error) const {
  assert(isComponent(name) && isComponent(newName));
  setOnFailure(::renameat(descriptor_.get(), name.c_str(), descriptor_.get(), newName.c_str()), error);
}

std::uint64_t DirectoryHandle::freeBytes(std::error_code& error) const {
  struct statvfs status {};
  setOnFailure(uninterrupted([&] { return ::fstatvfs(descriptor_.get(), &status); }), error);
  if (error) return 0;
  // Some file systems of user space do not say.
  if (status.f_blocks == 0) return std::numeric_limits<std::uint64_t>::max();
  return std::uint64_t{status.f_bavail} * status.f_frsize;
}

bool DirectoryHandle::tryLock(std::error_code& error) const {
  setOnFailure(uninterrupted([&] { return ::flock(descriptor_.get(), LOCK_EX | LOCK_NB); }), error);
  if (!error) return true;
  if (error == std::errc::operation_would_block) error.clear();
  return false;
}

DirectoryHandle::Lock DirectoryHandle::lock() const noexcept {
  // A file system without locks leaves only the harmless race of two processes that begin at the same moment.
  (void)uninterrupted([&] { return ::flock(descriptor_.get(), LOCK_EX); });
  return Lock(descriptor_.get());
}

DirectoryHandle::Lock::~Lock() { ::flock(folder_, LOCK_UN); }

}  // namespace vesko
