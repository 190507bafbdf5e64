#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/support/Check.h"

namespace vesko::fuzz {

/// A downloads folder with one file in it, and beside it a file and a folder that nothing may ever touch, for as long
/// as the process runs. Below TMPDIR, which scripts/fuzz makes and removes.
class Surroundings {
 public:
  /// The file in the downloads folder.
  static constexpr const char* earlierName = "a";

  Surroundings() {
    check(::mkdtemp(folder_.data()) != nullptr, "a temporary folder can be made", [this] { return folder_; });
    for (const char* const name : {"downloads", "folder"}) std::filesystem::create_directory(path(name));
    for (const char* const name : watched) {
      if (!std::filesystem::exists(path(name))) std::ofstream(path(name)) << "untouched";
    }
    before_ = state();
  }

  [[nodiscard]] std::string downloads() const { return path("downloads"); }

  void checkUntouched() const {
    check(state() == before_, "nothing beside the downloads folder changes, nor what was in it before",
          [this] { return before_ + " became " + state(); });
  }

 private:
  static constexpr const char* watched[] = {".", "folder", "file", "folder/file", "downloads/a"};

  /// The change times tell of every write, of modes and owners, and of names that came or went.
  [[nodiscard]] std::string state() const {
    std::string text;
    for (const char* const name : watched) {
      struct stat status {};
      check(::lstat(path(name).c_str(), &status) == 0, "what is watched stays", [name] { return name; });
      text += name;
      for (const auto number :
           {static_cast<std::uint64_t>(status.st_ino), static_cast<std::uint64_t>(status.st_size),
            static_cast<std::uint64_t>(status.st_ctim.tv_sec), static_cast<std::uint64_t>(status.st_ctim.tv_nsec)}) {
        (text += ' ') += std::to_string(number);
      }
      text += "; ";
    }
    return text;
  }

  [[nodiscard]] std::string path(const char* name) const { return folder_ + "/" + name; }

  std::string folder_ = std::filesystem::temp_directory_path() / "vesko-fuzz-XXXXXX";
  std::string before_;
};

}  // namespace vesko::fuzz
