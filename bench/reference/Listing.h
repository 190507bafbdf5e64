#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vesko::reference {

struct File {
  std::string name;
  std::uint64_t size;
};

struct Folder {
  std::string name;  ///< from the top of the transfer on, as on the wire; empty: what holds the only file
  std::string path;
  std::vector<File> files;
};

/// What is to be sent: the file at a path, or the folder with all that is in it.
class Listing {
 public:
  explicit Listing(const std::string& path);

  std::vector<Folder> folders;  ///< outer ones before inner ones
  std::uint64_t elementCount = 0;
  std::uint64_t totalSize = 0;

 private:
  void addFile(Folder& folder, const std::string& name, const struct stat& status);
  void addFolder(const std::string& name, const std::string& path);
};

}  // namespace vesko::reference
