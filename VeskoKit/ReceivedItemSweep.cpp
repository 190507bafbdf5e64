#include "VeskoKit/DeliveryNames.h"
#include "VeskoKit/ReceivedItemStorage.h"

namespace vesko {
namespace {

/// True when the folder is one that a transfer of this user left behind. It is locked then, for as long as it is held.
bool isAbandoned(const DirectoryHandle& base, const std::string& name, const DirectoryHandle& folder) {
  std::error_code error;
  // Asked last: until the lock is ours the transfer may be alive, and deliver the folder under another name.
  return folder.isOwnedByUser() && folder.tryLock(error) && base.leadsTo(name, folder, error);
}

}  // namespace

std::size_t ReceivedItemStorage::sweep(const std::string& basePath) {
  std::size_t count = 0;
  std::error_code error;
  const auto base = DirectoryHandle::open(basePath, error);
  if (!base) return count;
  for (const auto& listed : base->contents(error)) {
    if (!DeliveryNames::isStorageName(listed)) continue;
    // Where letter case counts, one in another is none of ours.
    const auto name = std::string(DeliveryNames::storagePrefix).append(listed, DeliveryNames::storagePrefix.size());
    const auto folder = base->openFolder(name, error);
    if (!folder || !isAbandoned(*base, name, *folder)) continue;
    base->removeTree(name, error);
    if (!error) ++count;
  }
  return count;
}

}  // namespace vesko
