#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "fuzz/support/Check.h"

namespace vesko::fuzz {

/// An empty folder of this process's, which goes away at its end: below TMPDIR or else in memory, as thousands of files
/// come and go in it every second.
class WorkFolder {
 public:
  WorkFolder() : path_(parent() + "/vesko-fuzz-XXXXXX") {
    check(::mkdtemp(path_.data()) != nullptr, "a temporary folder can be made", [this] { return path_; });
  }
  ~WorkFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  [[nodiscard]] std::string path(const char* name) const { return path_ + "/" + name; }
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  static std::string parent() {
    const char* const chosen = std::getenv("TMPDIR");
    if (chosen != nullptr && *chosen == '/') return chosen;
    return std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
  }

  std::string path_;
};

}  // namespace vesko::fuzz
