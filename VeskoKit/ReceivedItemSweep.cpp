#include "VeskoKit/DeliveryNames.h"
#include "VeskoKit/ReceivedItemStorage.h"

namespace vesko {
namespace {

/// True when the folder was left behind by a transfer of this user. It is then locked for as long as `folder` is open.
bool isAbandoned(const DirectoryHandle& base, const std::string& name, const DirectoryHandle& folder) {
  std::error_code error;
  // The name is checked last. Until the lock is ours, the transfer may be alive and move the folder to its final name.
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
    // The exact prefix: where letter case counts, a folder in another case was not made by this library.
    const auto name = std::string(DeliveryNames::storagePrefix).append(listed, DeliveryNames::storagePrefix.size());
    const auto folder = base->openFolder(name, error);
    if (!folder || !isAbandoned(*base, name, *folder)) continue;
    base->removeTree(name, error);
    if (!error) ++count;
  }
  return count;
}

}  // namespace vesko
