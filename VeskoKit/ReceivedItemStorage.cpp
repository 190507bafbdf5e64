#include "VeskoKit/ReceivedItemStorage.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <limits>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "Platform/files/FileManager.h"
#include "Platform/text/DateFormatter.h"
#include "VeskoKit/DeliveryNames.h"
#include "VeskoKit/PathText.h"
#include "VeskoKit/TransferStream.h"
#include "VeskoKit/VeskoItem.h"

namespace vesko {
namespace {

/// Attempts to find a free name for the storage folder. The names are random; if so many are taken, something is wrong.
constexpr int maximumAttempts = 16;

/// From this size on (bytes) the file system is asked for its free space; for smaller elements an estimate is enough.
constexpr std::uint64_t largeElement = 1024 * 1024;

/// Errors that the name of one element can cause. All others come from the disk or the folder, and would stop the
/// elements that follow, too.
constexpr std::array errorsOfName = {
    std::errc::filename_too_long,
    std::errc::invalid_argument,
    std::errc::illegal_byte_sequence,
    std::errc::not_a_directory,
    std::errc::is_a_directory,
    std::errc::file_exists,
    std::errc::too_many_symbolic_link_levels,
};

ReceivedItemStorage::Preparation preparation(std::error_code error, std::shared_ptr<FileHandle> file = nullptr) {
  using Verdict = ReceivedItemStorage::Verdict;
  if (!error) return {Verdict::stored, std::move(file), error};
  const bool isOfName = error == VeskoItemErrc::nameTaken ||
                        std::ranges::any_of(errorsOfName, [&](std::errc code) { return error == code; });
  return {isOfName ? Verdict::dropped : Verdict::failed, nullptr, error};
}

/// Locks the new folder, so that no sweep takes it for a leftover. On a file system without locks there are no sweeps
/// either. False, without an error, when a sweep has locked it first and is about to remove it.
bool claim(const DirectoryHandle& base, const std::string& name, const DirectoryHandle& folder,
           std::error_code& error) {
  const bool isLockedByAnother = !folder.tryLock(error) && !error;
  return !isLockedByAnother && base.leadsTo(name, folder, error);
}

/// Ambiguous errors: some file systems answer them to a name that they do not allow, and all of them when the folder is
/// gone or cannot be written to.
constexpr std::array errorsOfNameOrFolder = {
    std::errc::no_such_file_or_directory,
    std::errc::operation_not_permitted,
    std::errc::operation_not_supported,
};

/// Finds out whether an ambiguous error came from the name or from the folder, by creating and removing a file with a
/// plain name. It decides whether one element is dropped or the whole transfer fails.
std::error_code causeOf(std::error_code error, const DirectoryHandle& parent) {
  const auto isError = [&](std::errc code) { return error == code; };
  if (std::ranges::none_of(errorsOfNameOrFolder, isError)) return error;
  const std::string plain = "vesko";
  std::error_code obstacle;
  if (parent.makeFile(plain, obstacle)) parent.removeFile(plain, obstacle);
  const bool takesOthers = !obstacle || obstacle == std::errc::file_exists;
  return takesOthers ? std::make_error_code(std::errc::invalid_argument) : error;
}

}  // namespace

ReceivedItemStorage::ReceivedItemStorage(std::string basePath, std::chrono::system_clock::time_point startTime,
                                         std::function<std::string()> randomText)
    : basePath_(std::move(basePath)), startTime_(startTime), randomText_(std::move(randomText)) {
  chooseName();
}

ReceivedItemStorage::~ReceivedItemStorage() { remove(); }

void ReceivedItemStorage::chooseName() {
  const auto start = std::string(DeliveryNames::storagePrefix) +
                     DateFormatter(std::string(DeliveryNames::storageDateFormat)).stringFromDate(startTime_);
  do {
    name_ = start + randomText_();
    path_ = stringByAppendingPathComponent(basePath_, name_);
  } while (FileManager::fileExistsAtPath(path_));
}

/// A name is tried until the folder could be made and locked. Another process may take the name first, or a sweep may
/// remove the folder between making and locking it.
std::error_code ReceivedItemStorage::makeStorageFolder() {
  std::error_code error;
  if (root_) return error;
  FileManager::createDirectoryAtPath(basePath_, error);
  if (!error) base_ = DirectoryHandle::open(basePath_, error);
  if (error) return error;
  for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
    if (attempt > 0) chooseName();
    base_->makeFolder(name_, error);
    if (error == std::errc::file_exists) continue;
    if (error) return error;
    auto folder = base_->openFolder(name_, error);
    if (folder && claim(*base_, name_, *folder, error)) {
      root_ = std::move(folder);
      parent_ = {root_, ReceivedItemSpellings::top};
      spellings_.examine(*root_, error);
      return error;
    }
    if (error && error != std::errc::no_such_file_or_directory) {
      std::error_code ignored;
      base_->removeEmptyFolder(name_, ignored);
      return error;
    }
  }
  return std::make_error_code(std::errc::device_or_resource_busy);
}

/// Announced sizes are checked before a file is created, so that a transfer that cannot fit fails before its bytes are
/// sent. Where the file system does not tell, there is room until a write fails.
bool ReceivedItemStorage::hasRoomFor(std::uint64_t size) {
  if (size >= largeElement || size > estimatedFreeBytes_) {
    std::error_code error;
    estimatedFreeBytes_ = root_->freeBytes(error);
    if (error) estimatedFreeBytes_ = std::numeric_limits<std::uint64_t>::max();
  }
  if (size > estimatedFreeBytes_) return false;
  estimatedFreeBytes_ -= size;
  return true;
}

void ReceivedItemStorage::noteEntry(const Place& parent, const std::string& name) {
  ++entryCount_;
  spellings_.note(parent.number, name);
}

/// A folder that exists is accepted if this transfer made it under the same name. Under another spelling it belongs to
/// another element, which must not be mixed with this one.
void ReceivedItemStorage::makeFolder(const Place& parent, const std::string& name, std::error_code& error) {
  parent.folder->makeFolder(name, error);
  if (!error) return noteEntry(parent, name);
  if (error != std::errc::file_exists) {
    error = causeOf(error, *parent.folder);
  } else if (spellings_.knows(parent.number, name)) {
    const auto kind = parent.folder->attributes(name, false, error).kind;
    if (!error && kind != EntryKind::folder) error = std::make_error_code(std::errc::not_a_directory);
  } else {
    error = VeskoItemErrc::nameTaken;
  }
}

ReceivedItemStorage::Place ReceivedItemStorage::openOrMakeFolder(const Place& parent, const std::string& name,
                                                                 std::error_code& error) {
  std::shared_ptr<DirectoryHandle> folder;
  error = std::make_error_code(std::errc::no_such_file_or_directory);
  if (spellings_.knows(parent.number, name)) folder = parent.folder->openFolder(name, error);
  if (error == std::errc::no_such_file_or_directory) {
    makeFolder(parent, name, error);
    if (!error) folder = parent.folder->openFolder(name, error);
  }
  return {std::move(folder), spellings_.folder(parent.number, name)};
}

/// A file is replaced only if this transfer made it under the same name.
std::shared_ptr<FileHandle> ReceivedItemStorage::makeFile(const std::string& name, std::error_code& error) {
  auto file = parent_.folder->makeFile(name, error);
  if (error == std::errc::file_exists && spellings_.knows(parent_.number, name)) {
    parent_.folder->removeFile(name, error);
    if (!error) file = parent_.folder->makeFile(name, error);
  }
  if (error == std::errc::file_exists) {
    error = VeskoItemErrc::nameTaken;
  } else if (error) {
    error = causeOf(error, *parent_.folder);
  } else {
    noteEntry(parent_, name);
  }
  return file;
}

/// Opens the folder of the next element, from the last one if it lies there or below, otherwise from the top.
std::error_code ReceivedItemStorage::enterFolder(std::vector<std::string> folders) {
  std::error_code error;
  const auto [held, wanted] = std::ranges::mismatch(parentFolders_, folders);
  const bool isBelowHeld = held == parentFolders_.end();
  auto place = isBelowHeld ? parent_ : Place{root_, ReceivedItemSpellings::top};
  for (auto name = isBelowHeld ? wanted : folders.begin(); name != folders.end(); ++name) {
    place = openOrMakeFolder(place, *name, error);
    if (error) return error;
  }
  parent_ = std::move(place);
  parentFolders_ = std::move(folders);
  return error;
}

std::string ReceivedItemStorage::enterParentOf(std::string_view name, std::error_code& error) {
  auto components = TransferStream::componentsOfName(name);
  auto leaf = std::move(components.back());
  components.pop_back();
  error = enterFolder(std::move(components));
  return leaf;
}

ReceivedItemStorage::Preparation ReceivedItemStorage::prepareFolder(std::string_view name) {
  assert(TransferStream::checkName(name) == TransferStream::NameVerdict::good);
  lastFile_.clear();
  auto error = makeStorageFolder();
  if (error) return {Verdict::failed, nullptr, error};
  const auto leaf = enterParentOf(name, error);
  if (!error) makeFolder(parent_, leaf, error);
  return preparation(error);
}

ReceivedItemStorage::Preparation ReceivedItemStorage::prepareFile(std::string_view name, std::uint64_t size) {
  assert(TransferStream::checkName(name) == TransferStream::NameVerdict::good);
  lastFile_.clear();
  auto error = makeStorageFolder();
  if (!error && !hasRoomFor(size)) error = std::make_error_code(std::errc::no_space_on_device);
  if (error) return {Verdict::failed, nullptr, error};
  auto leaf = enterParentOf(name, error);
  if (error) return preparation(error);
  auto file = makeFile(leaf, error);
  if (!error) {
    lastFile_ = std::move(leaf);
    byteCount_ += size;
  }
  return preparation(error, std::move(file));
}

bool ReceivedItemStorage::discardLastFile() {
  const auto file = std::exchange(lastFile_, {});
  std::error_code error;
  for (int attempt = 0; !file.empty() && attempt < removalAttempts; ++attempt) {
    parent_.folder->removeFile(file, error);
    if (!error) break;
  }
  if (!error) spellings_.forget(parent_.number, file);
  return !error;
}

}  // namespace vesko
