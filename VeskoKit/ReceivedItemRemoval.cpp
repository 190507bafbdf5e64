#include "VeskoKit/ReceivedItemStorage.h"

namespace vesko {
namespace {

/// Removes a storage folder, unless something else is in its place. If that fails twice, the next sweep removes it.
void removeStorage(const DirectoryHandle& base, const std::string& name, const DirectoryHandle& folder) {
  std::error_code error;
  for (int attempt = 0; attempt < ReceivedItemStorage::removalAttempts; ++attempt) {
    if (base.leadsTo(name, folder, error)) base.removeTree(name, error);
    if (!error) return;
  }
}

/// The same for a folder that is not open any more, and had this `identity` when it was.
void removeStorage(const std::string& basePath, const std::string& name, const FileIdentity& identity) {
  std::error_code error;
  const auto base = DirectoryHandle::open(basePath, error);
  const auto folder = base ? base->openFolder(name, error) : nullptr;
  if (folder && folder->identity(error) == identity && !error) removeStorage(*base, name, *folder);
}

}  // namespace

bool ReceivedItemStorage::takesLongToRemove() const noexcept {
  return root_ && (entryCount_ > quicklyRemovedEntries || byteCount_ > quicklyRemovedBytes);
}

/// The folder is closed, and its lock released, until it is removed: a sweep by another process may remove it first,
/// which does no harm.
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

}  // namespace vesko
