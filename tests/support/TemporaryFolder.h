#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace vesko {

/// What is below a folder, by relative path: the contents of files, "/" for folders, "-> target" for links.
using Tree = std::map<std::string, std::string>;

/// A new, empty folder that goes away, with everything inside, with its owner. Names are paths relative to it.
class TemporaryFolder {
 public:
  TemporaryFolder() : path_(testing::TempDir() + "vesko-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path_);
  }

  ~TemporaryFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }

  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  [[nodiscard]] std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

  /// Makes a folder, and missing ones above it; its path.
  std::string makeFolder(std::string_view name) const {
    std::filesystem::create_directories(path(name));
    return path(name);
  }

  /// Writes a file anew, in folders made as needed; its path.
  std::string write(std::string_view name, std::string_view contents) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name), std::ios::binary) << contents;
    return path(name);
  }

  /// The bytes of a file, links followed; "" when there is none, or none that its path can be opened by.
  [[nodiscard]] std::string read(std::string_view name) const {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path(name), error)) return {};
    std::ostringstream bytes;
    bytes << std::ifstream(path(name), std::ios::binary).rdbuf();
    return std::move(bytes).str();
  }

  /// True when anything has this name, be it a link that leads nowhere.
  [[nodiscard]] bool exists(std::string_view name) const {
    return std::filesystem::exists(std::filesystem::symlink_status(path(name)));
  }

  /// The sorted names of what is directly inside, hidden ones included.
  [[nodiscard]] std::vector<std::string> entries(std::string_view name = ".") const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path(name))) {
      names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
  }

  [[nodiscard]] Tree tree(std::string_view name = ".") const {
    Tree found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path(name))) {
      auto& what = found[entry.path().lexically_relative(path(name))];
      if (entry.is_symlink()) {
        what = "-> " + std::filesystem::read_symlink(entry.path()).string();
      } else {
        what = entry.is_directory() ? "/" : read(entry.path().lexically_relative(path_).string());
      }
    }
    return found;
  }

 private:
  std::string path_;
};

}  // namespace vesko
