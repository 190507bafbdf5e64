#include <utility>

#include "Platform/text/DateFormatter.h"
#include "VeskoKit/PathText.h"
#include "VeskoKit/ReceivedItemNames.h"
#include "VeskoKit/ReceivedItemStorage.h"

namespace vesko {
namespace {

/// Moves an entry into `base` under the first free of `wanted`, "wanted (2)", "wanted (3)" and so on; that name.
std::string moveToFreeName(const DirectoryHandle& folder, const std::string& entry, const DirectoryHandle& base,
                           const std::string& wanted, std::error_code& error) {
  auto candidate = wanted;
  for (std::uint64_t counter = 2;; ++counter) {
    folder.moveWithoutReplacing(entry, base, candidate, error);
    if (error != std::errc::file_exists) return candidate;
    candidate = ReceivedItemNames::numberedName(wanted, counter);
  }
}

std::string nameForSeveral(std::chrono::system_clock::time_point startTime) {
  return sanitizedString("Received by Vesko at " + DateFormatter("yyyy-MM-dd hh-mm").stringFromDate(startTime));
}

/// Removes a storage folder, unless something else is in its place. What cannot be removed even by a second attempt is
/// left to the next sweep.
void removeStorage(const DirectoryHandle& base, const std::string& name, const DirectoryHandle& folder) {
  std::error_code error;
  for (int attempt = 0; attempt < ReceivedItemStorage::removalAttempts; ++attempt) {
    if (base.leadsTo(name, folder, error)) base.removeTree(name, error);
    if (!error) return;
  }
}

/// The same for one that is not held, and was `identity` when it was.
void removeStorage(const std::string& basePath, const std::string& name, const FileIdentity& identity) {
  std::error_code error;
  const auto base = DirectoryHandle::open(basePath, error);
  const auto folder = base ? base->openFolder(name, error) : nullptr;
  if (folder && folder->identity(error) == identity && !error) removeStorage(*base, name, *folder);
}

/// True when the folder is one that a transfer of this user left behind. It is locked then, for as long as it is held.
bool isAbandoned(const DirectoryHandle& base, const std::string& name, const DirectoryHandle& folder) {
  std::error_code error;
  // Asked last: until the lock is ours the transfer may be alive, and deliver the folder under another name.
  return folder.isOwnedByUser() && folder.tryLock(error) && base.leadsTo(name, folder, error);
}

}  // namespace

std::optional<std::string> ReceivedItemStorage::settle(std::error_code& error) {
  error.clear();
  if (!root_) return std::nullopt;
  const bool isInPlace = base_->leadsTo(name_, *root_, error);
  if (!isInPlace && !error) error = std::make_error_code(std::errc::no_such_file_or_directory);
  if (error) return std::nullopt;
  const auto entries = root_->contents(error);
  if (error) return std::nullopt;
  std::string delivered;
  // What has the name of a storage folder must not lie where one would: it would be swept away.
  const bool needsFolder = entries.size() > 1 || (!entries.empty() && ReceivedItemNames::isStorageName(entries[0]));
  if (needsFolder) {
    delivered = moveToFreeName(*base_, name_, *base_, nameForSeveral(startTime_), error);
  } else if (!entries.empty()) {
    const auto name = spellings_.onlyNameAtTop().value_or(entries.front());
    delivered = moveToFreeName(*root_, name, *base_, name, error);
  }
  if (error) return std::nullopt;
  if (needsFolder) {
    close();
  } else {
    remove();
  }
  return delivered.empty() ? delivered : stringByAppendingPathComponent(basePath_, delivered);
}

bool ReceivedItemStorage::takesLongToRemove() const noexcept {
  return root_ && (entryCount_ > quicklyRemovedEntries || byteCount_ > quicklyRemovedBytes);
}

std::function<void()> ReceivedItemStorage::giveUp() {
  std::error_code error;
  const auto identity = root_ ? root_->identity(error) : FileIdentity{};
  if (!root_ || error) {
    remove();
    return [] {};
  }
  close();
  return [basePath = basePath_, name = name_, identity] { removeStorage(basePath, name, identity); };
}

void ReceivedItemStorage::remove() {
  if (!root_) return;
  removeStorage(*base_, name_, *root_);
  close();
}

void ReceivedItemStorage::close() noexcept {
  base_.reset();
  root_.reset();
  parent_ = {};
  parentFolders_.clear();
  lastFile_.clear();
}

std::size_t ReceivedItemStorage::sweep(const std::string& basePath) {
  std::size_t count = 0;
  std::error_code error;
  const auto base = DirectoryHandle::open(basePath, error);
  if (!base) return count;
  for (const auto& listed : base->contents(error)) {
    if (!ReceivedItemNames::isStorageName(listed)) continue;
    // Where letter case counts, one in another is none of ours.
    const auto name =
        std::string(ReceivedItemNames::storagePrefix).append(listed, ReceivedItemNames::storagePrefix.size());
    const auto folder = base->openFolder(name, error);
    if (!folder || !isAbandoned(*base, name, *folder)) continue;
    base->removeTree(name, error);
    if (!error) ++count;
  }
  return count;
}

}  // namespace vesko
