#include "Platform/text/DateFormatter.h"
#include "VeskoKit/DeliveryNames.h"
#include "VeskoKit/PathText.h"
#include "VeskoKit/ReceivedItemStorage.h"

namespace vesko {
namespace {

/// Moves an entry into `base` under the first free name of `wanted`, "wanted (2)", "wanted (3)" and so on, and returns
/// that name. It does not look for a free name first: another program could take it before the move. The move itself
/// fails when the name is taken, so nothing is ever replaced.
std::string moveToFreeName(const DirectoryHandle& folder, const std::string& entry, const DirectoryHandle& base,
                           const std::string& wanted, std::error_code& error) {
  auto candidate = wanted;
  for (std::uint64_t counter = 2;; ++counter) {
    folder.moveWithoutReplacing(entry, base, candidate, error);
    if (error != std::errc::file_exists) return candidate;
    candidate = DeliveryNames::numberedName(wanted, counter);
  }
}

std::string nameForSeveral(std::chrono::system_clock::time_point startTime) {
  return sanitizedString("Received by Vesko at " + DateFormatter("yyyy-MM-dd hh-mm").stringFromDate(startTime));
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
  // Something named like a storage folder must not lie directly in the downloads folder: a sweep would remove it.
  const bool needsFolder = entries.size() > 1 || (!entries.empty() && DeliveryNames::isStorageName(entries[0]));
  if (needsFolder) {
    delivered = moveToFreeName(*base_, name_, *base_, nameForSeveral(startTime_), error);
  } else if (!entries.empty()) {
    // The name as the sender wrote it. The file system may list it in another spelling.
    const auto name = spellings_.onlyNameAtTop().value_or(entries.front());
    delivered = moveToFreeName(*root_, name, *base_, name, error);
  }
  if (error) return std::nullopt;
  // The storage folder itself was moved: only its handles are closed. Otherwise it is empty now and removed.
  if (needsFolder) {
    close();
  } else {
    remove();
  }
  return delivered.empty() ? delivered : stringByAppendingPathComponent(basePath_, delivered);
}

}  // namespace vesko
