#include "VeskoKit/ReceivedItemSpellings.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "Platform/files/FileHandle.h"

namespace vesko {
namespace {

const std::string probe = "Vesk\u00F6";

/// The probe in other letter case, and with the accent as a character of its own. A file system may take one of them
/// for the probe and not the other.
const std::array otherSpellings = {std::string("vESK\u00F6"), std::string("Vesko\u0308")};

bool mayLeadTo(const DirectoryHandle& folder, const std::string& name) {
  std::error_code error;
  (void)folder.attributes(name, false, error);
  return error != std::errc::no_such_file_or_directory;
}

}  // namespace

void ReceivedItemSpellings::examine(const DirectoryHandle& folder, std::error_code& error) {
  (void)folder.makeFile(probe, error);
  // When the probe cannot be created, names are kept to be on the safe side.
  areKept_ = error || std::ranges::any_of(otherSpellings, [&](const auto& name) { return mayLeadTo(folder, name); });
  if (error) {
    error.clear();
  } else {
    folder.removeFile(probe, error);
  }
}

bool ReceivedItemSpellings::knows(Folder parent, const std::string& name) const {
  return !areKept_ || names_.contains({parent, name});
}

void ReceivedItemSpellings::note(Folder parent, const std::string& name) {
  if (areKept_ && names_.try_emplace({parent, name}, lastFolder_ + 1).second) ++lastFolder_;
}

void ReceivedItemSpellings::forget(Folder parent, const std::string& name) { names_.erase({parent, name}); }

ReceivedItemSpellings::Folder ReceivedItemSpellings::folder(Folder parent, const std::string& name) const {
  const auto found = names_.find({parent, name});
  return found == names_.end() ? top : found->second;
}

std::optional<std::string> ReceivedItemSpellings::onlyNameAtTop() const {
  const auto first = names_.begin();
  const bool hasOne = first != names_.end() && first->first.first == top;
  const bool hasMore = hasOne && std::next(first) != names_.end() && std::next(first)->first.first == top;
  return hasOne && !hasMore ? std::optional(first->first.second) : std::nullopt;
}

}  // namespace vesko
