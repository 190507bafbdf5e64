#include "tests/support/Coverage.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

// Of the compiler's library, which is there only when it counts.
extern "C" {
[[gnu::weak]] int __llvm_profile_write_file();
[[gnu::weak]] void __llvm_profile_set_filename(const char* name);
}

namespace vesko {

namespace {

/// Death tests want their children to abort.
[[maybe_unused]] const auto onAbort = [] {
  return __llvm_profile_write_file == nullptr ? SIG_DFL : std::signal(SIGABRT, [](int) { keepCoverage(); });
}();

}  // namespace

void keepCoverage() {
  const char* const pattern = std::getenv("LLVM_PROFILE_FILE");
  if (pattern == nullptr || __llvm_profile_write_file == nullptr) return;
  const std::string name = std::filesystem::path(pattern).replace_filename("child-%p.profraw").string();
  __llvm_profile_set_filename(name.c_str());
  __llvm_profile_write_file();
}

}  // namespace vesko
