#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/support/Check.h"
#include "fuzz/support/WorkFolder.h"

namespace vesko::fuzz {

/// A downloads folder with one file in it, and beside it a file and a folder that nothing may ever touch.
class Surroundings {
 public:
  /// The file in the downloads folder.
  static constexpr const char* earlierName = "a";

  Surroundings() {
    for (const char* const name : {"downloads", "folder"}) std::filesystem::create_directory(folder_.path(name));
    for (const char* const name : watched) {
      if (!std::filesystem::exists(folder_.path(name))) std::ofstream(folder_.path(name)) << "untouched";
    }
    before_ = state();
  }

  [[nodiscard]] std::string downloads() const { return folder_.path("downloads"); }

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
      check(::lstat(folder_.path(name).c_str(), &status) == 0, "what is watched stays", [name] { return name; });
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

  const WorkFolder folder_;
  std::string before_;
};

}  // namespace vesko::fuzz
