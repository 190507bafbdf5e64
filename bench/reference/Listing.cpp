#include "bench/reference/Listing.h"

#include <dirent.h>
#include <fcntl.h>

#include "bench/reference/Descriptor.h"

namespace vesko::reference {
namespace {

std::string joined(std::string folder, const std::string& leaf) { return folder.append("/").append(leaf); }

}  // namespace

Listing::Listing(const std::string& path) {
  struct stat status {};
  check(stat(path.c_str(), &status), path);
  const std::size_t slash = path.rfind('/');
  const std::string leaf = slash == std::string::npos ? path : path.substr(slash + 1);
  if (S_ISDIR(status.st_mode)) {
    addFolder(leaf, path);
  } else {
    folders.push_back({"", slash == std::string::npos ? "." : path.substr(0, slash + 1), {}});
    addFile(folders.front(), leaf, status);
  }
}

void Listing::addFile(Folder& folder, const std::string& name, const struct stat& status) {
  const auto size = static_cast<std::uint64_t>(status.st_size);
  folder.files.push_back({name, size});
  ++elementCount;
  totalSize += size;
}

void Listing::addFolder(const std::string& name, const std::string& path) {
  const std::size_t index = folders.size();
  folders.push_back({name, path, {}});
  ++elementCount;
  std::vector<std::string> inner;
  DIR* const entries = opendir(path.c_str());
  if (entries == nullptr) fail(path);
  while (const dirent* const entry = readdir(entries)) {
    const std::string leaf = entry->d_name;
    if (leaf == "." || leaf == "..") continue;
    struct stat status {};
    check(fstatat(dirfd(entries), entry->d_name, &status, 0), leaf);
    if (S_ISDIR(status.st_mode)) inner.push_back(leaf);
    if (S_ISREG(status.st_mode)) addFile(folders[index], leaf, status);
  }
  closedir(entries);
  for (const std::string& leaf : inner) addFolder(joined(name, leaf), joined(path, leaf));
}

}  // namespace vesko::reference
