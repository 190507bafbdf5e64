#include "Platform/files/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "Platform/process/SystemError.h"

namespace vesko {

std::shared_ptr<FileHandle> FileHandle::forReadingAtPath(const std::string& path, std::error_code& error) {
  return forReadingInFolder(AT_FDCWD, path, error);
}

std::shared_ptr<FileHandle> FileHandle::forReadingInFolder(int folder, const std::string& path,
                                                           std::error_code& error) {
  error.clear();
  // Without O_NONBLOCK a named pipe would hold the caller until somebody writes to it.
  const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  FileDescriptor descriptor(uninterrupted([&] { return ::openat(folder, path.c_str(), flags); }));
  struct stat status {};
  if (!descriptor || ::fstat(descriptor.get(), &status) != 0) {
    // ENXIO is what open(2) returns for a socket.
    error = errno == ENXIO ? std::make_error_code(std::errc::invalid_argument) : lastSystemError();
    return nullptr;
  }
  if (!S_ISREG(status.st_mode)) {
    error = std::make_error_code(std::errc::invalid_argument);
    return nullptr;
  }
  return std::make_shared<FileHandle>(std::move(descriptor), static_cast<std::uint64_t>(status.st_size));
}

std::shared_ptr<FileHandle> FileHandle::nullDevice(std::error_code& error) {
  error.clear();
  FileDescriptor descriptor(uninterrupted([] { return ::open("/dev/null", O_WRONLY | O_CLOEXEC); }));
  if (!descriptor) {
    error = lastSystemError();
    return nullptr;
  }
  return std::make_shared<FileHandle>(std::move(descriptor));
}

/// Nothing is read here; the result only names a part of the file. The length is asked for again only when the known
/// one is not enough, as the file may have grown.
Data FileHandle::readDataOfLength(std::uint64_t length, std::error_code& error) {
  error.clear();
  if (knownLength_ < offset_ || knownLength_ - offset_ < length) {
    struct stat status {};
    if (::fstat(descriptor_.get(), &status) != 0) {
      error = lastSystemError();
      return {};
    }
    knownLength_ = static_cast<std::uint64_t>(status.st_size);
  }
  const auto available = std::min(length, knownLength_ - std::min(knownLength_, offset_));
  if (available == 0) return {};
  const auto offset = std::exchange(offset_, offset_ + available);
  return Data::stretchOfFile(shared_from_this(), offset, available);
}

std::size_t FileHandle::readAt(std::uint64_t offset, std::span<char> buffer, std::error_code& error) const {
  error.clear();
  std::size_t done = 0;
  while (done < buffer.size()) {
    const auto position = static_cast<off_t>(offset + done);
    const auto count =
        uninterrupted([&] { return ::pread(descriptor_.get(), buffer.data() + done, buffer.size() - done, position); });
    if (count < 0) error = lastSystemError();
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

void FileHandle::writeData(std::string_view bytes, std::error_code& error) {
  error.clear();
  while (!bytes.empty()) {
    const auto count = uninterrupted(
        [&] { return ::pwrite(descriptor_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset_)); });
    if (count <= 0) {
      error = count < 0 ? lastSystemError() : std::make_error_code(std::errc::io_error);
      return;
    }
    offset_ += static_cast<std::uint64_t>(count);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::uint64_t FileHandle::writeFromPipe(int readingEnd, std::uint64_t length, std::error_code& error) {
  error.clear();
  std::uint64_t done = 0;
  while (done < length) {
    auto position = static_cast<off_t>(offset_);
    const auto count = uninterrupted(
        [&] { return ::splice(readingEnd, nullptr, descriptor_.get(), &position, length - done, SPLICE_F_MOVE); });
    if (count <= 0) {
      error = count < 0 ? lastSystemError() : std::make_error_code(std::errc::io_error);
      break;
    }
    offset_ += static_cast<std::uint64_t>(count);
    done += static_cast<std::uint64_t>(count);
  }
  return done;
}

}  // namespace vesko
