#include "VeskoKit/ItemWalk.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Platform/files/DirectoryHandle.h"
#include "Platform/files/FileHandle.h"
#include "VeskoKit/PathText.h"
#include "VeskoKit/TransferFailure.h"
#include "VeskoKit/TransferStream.h"

namespace vesko {
namespace {

using TransferFailure::faultOfName;
using FolderPointer = std::shared_ptr<const VeskoItemFolder>;

/// An entry of a folder: its name and what the file system says of it.
struct Entry {
  std::string leaf;
  FileAttributes attributes;
  std::error_code error;
};

VeskoFailureReason reasonForError(std::error_code error) {
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
    return VeskoFailureReason::notFound;
  }
  return error == std::errc::filename_too_long ? VeskoFailureReason::limit : VeskoFailureReason::notReadable;
}

/// Why a file that is listed with 0 bytes cannot be sent; no error when it is really empty. Files such as those of
/// /proc are listed with 0 bytes although they have some. They cannot be sent, because the length comes before the
/// body.
std::error_code flawOfEmptyFile(FileHandle& file) {
  std::error_code error;
  std::array<char, 1> byte{};
  if (file.readAt(0, byte, error) == 0) return error;
  // A file that was written to in the meantime has a length now. It is sent as listed, with 0 bytes.
  const bool hasLength = !file.readDataOfLength(1, error).empty();
  return error || hasLength ? error : VeskoItemErrc::lengthUnknown;
}

/// Why an entry cannot be sent. A file of this user with the permission to read is not tested further: that saves a
/// system call for nearly every file.
std::error_code flawOf(const DirectoryHandle& folder, const std::string& leaf, const FileAttributes& attributes) {
  if (attributes.kind != EntryKind::file) return {};
  if (!attributes.isOwnReadable && !folder.isReadable(leaf)) return std::make_error_code(std::errc::permission_denied);
  if (attributes.size > 0) return {};
  std::error_code error;
  const auto file = folder.openFile(leaf, error);
  return file ? flawOfEmptyFile(*file) : error;
}

std::string pathOf(const VeskoItem& listed) {
  const auto* const folder = dynamic_cast<const VeskoDir*>(&listed);
  return folder != nullptr ? folder->path() : dynamic_cast<const VeskoFile&>(listed).path();
}

std::vector<Entry> entriesOf(const DirectoryHandle& folder, std::vector<std::string> leaves) {
  std::vector<Entry> entries;
  entries.reserve(leaves.size());
  for (std::string& leaf : leaves) {
    std::error_code error;
    const FileAttributes attributes = folder.attributes(leaf, true, error);
    if (!error) error = flawOf(folder, leaf, attributes);
    entries.push_back({std::move(leaf), attributes, error});
  }
  return entries;
}

/// One walk. The recursion is bounded: a good name has at most 256 components.
class ItemWalk {
 public:
  explicit ItemWalk(std::vector<VeskoSkippedElement>& leftOut) : leftOut_(leftOut) {}

  void addChosen(const std::string& path);
  void leaveOutWhatLooksLikeText();
  [[nodiscard]] VeskoItems takeItems() { return std::move(items_); }

 private:
  void addChosenFile(const std::string& path, const std::string& name);
  void addFolder(const FolderPointer& folder, std::shared_ptr<DirectoryHandle> handle);
  void addEntry(const FolderPointer& folder, Entry& entry);
  void descend(std::string path, std::string name);
  [[nodiscard]] bool isAncestor(const FileIdentity& identity) const noexcept {
    return std::find(ancestors_.begin(), ancestors_.end(), identity) != ancestors_.end();
  }
  void leaveOut(std::string path, VeskoFailureReason reason, std::error_code error = {}) {
    leftOut_.push_back({std::move(path), reason, error});
  }
  void leaveOut(std::string path, std::error_code error) { leaveOut(std::move(path), reasonForError(error), error); }

  VeskoItems items_;
  std::vector<FileIdentity> ancestors_;
  std::vector<VeskoSkippedElement>& leftOut_;
};

/// Tries to open a folder first; the error tells whether it is a file.
void ItemWalk::addChosen(const std::string& path) {
  const std::string name = lastPathComponent(path);
  if (const auto fault = faultOfName(name); fault.reason != VeskoFailureReason::none) {
    return leaveOut(path, fault.reason, fault.error);
  }

  std::error_code error;
  if (auto handle = DirectoryHandle::open(path, error)) {
    return addFolder(std::make_shared<const VeskoItemFolder>(VeskoItemFolder{path, name}), std::move(handle));
  }
  if (error != std::errc::not_a_directory) return leaveOut(path, error);
  addChosenFile(path, name);
}

void ItemWalk::addChosenFile(const std::string& path, const std::string& name) {
  std::error_code error;
  // Slashes at the end are removed first: the system takes "file/" for a missing folder, and the user would be told
  // that the file does not exist.
  const auto handle = FileHandle::forReadingAtPath(stringByAppendingPathComponent(path, {}), error);
  if (!handle) return leaveOut(path, error);
  if (path.ends_with('/')) return leaveOut(path, VeskoFailureReason::notReadable, VeskoItemErrc::notAFolder);
  auto file = std::make_shared<VeskoFile>(path, name);
  error = file->sourceError();
  if (!error && file->size() == 0) error = flawOfEmptyFile(*handle);
  if (error) return leaveOut(path, error);
  items_.push_back(std::move(file));
}

void ItemWalk::leaveOutWhatLooksLikeText() {
  if (items_.size() != 1 || !TransferStream::isText(items_.front()->name(), 1)) return;
  // An empty folder as well: a receiver may look at the name before it looks at the mark of a folder.
  leaveOut(pathOf(*items_.front()), VeskoFailureReason::unsafeName, VeskoItemErrc::textName);
  items_.clear();
}

/// `ancestors_` holds the folders from the chosen one down to this one. A link to one of them would make the walk
/// endless.
void ItemWalk::addFolder(const FolderPointer& folder, std::shared_ptr<DirectoryHandle> handle) {
  std::error_code error;
  const FileIdentity identity = handle->identity(error);
  if (!error && isAncestor(identity)) error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
  std::vector<std::string> leaves;
  if (!error) leaves = handle->contents(error);
  if (error) leaveOut(folder->path, error);
  // Entries that were listed before the error are sent.
  if (error && leaves.empty()) return;

  items_.push_back(std::make_shared<VeskoDir>(folder));
  auto entries = entriesOf(*handle, std::move(leaves));
  // Closed before the recursion, so that a deep tree does not use up the descriptors.
  handle.reset();

  ancestors_.push_back(identity);
  for (Entry& entry : entries) addEntry(folder, entry);
  ancestors_.pop_back();
}

void ItemWalk::addEntry(const FolderPointer& folder, Entry& entry) {
  // Here an entry is asked for relative to its folder, but later it is opened by its path, which must fit into PATH_MAX
  // with the terminating 0.
  if (folder->path.size() + 1 + entry.leaf.size() >= TransferStream::maximumNameLength) {
    entry.error = std::make_error_code(std::errc::filename_too_long);
  }
  std::string name = stringByAppendingPathComponent(folder->name, entry.leaf);
  const auto fault = faultOfName(name);
  const bool isGood = fault.reason == VeskoFailureReason::none && !entry.error;
  if (isGood && entry.attributes.kind == EntryKind::file) {
    items_.push_back(std::make_shared<VeskoFile>(folder, std::move(entry.leaf), entry.attributes.size));
    return;
  }

  std::string path = stringByAppendingPathComponent(folder->path, entry.leaf);
  if (fault.reason != VeskoFailureReason::none) return leaveOut(std::move(path), fault.reason, fault.error);
  if (entry.error) return leaveOut(std::move(path), entry.error);
  if (entry.attributes.kind != EntryKind::folder) {
    return leaveOut(std::move(path), std::make_error_code(std::errc::invalid_argument));
  }
  descend(std::move(path), std::move(name));
}

void ItemWalk::descend(std::string path, std::string name) {
  std::error_code error;
  auto handle = DirectoryHandle::open(path, error);
  if (!handle) return leaveOut(std::move(path), error);
  addFolder(std::make_shared<const VeskoItemFolder>(VeskoItemFolder{std::move(path), std::move(name)}),
            std::move(handle));
}

}  // namespace

VeskoItems walkPaths(const std::vector<std::string>& paths, std::vector<VeskoSkippedElement>& leftOut) {
  ItemWalk walk(leftOut);
  for (const std::string& path : paths) walk.addChosen(path);
  walk.leaveOutWhatLooksLikeText();
  return walk.takeItems();
}

}  // namespace vesko
