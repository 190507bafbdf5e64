#include "hosts/common/control/ControlFolder.h"

#include <cstdlib>

#include "Platform/user/Account.h"

namespace vesko {
namespace {

/// The value of an environment variable if it is an absolute path; else empty. A relative path would be a different
/// folder for each program.
std::string folderInEnvironment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value == '/' ? value : "";
}

}  // namespace

std::string controlFolder() {
  if (const std::string folder = folderInEnvironment("XDG_RUNTIME_DIR"); !folder.empty()) return folder + "/vesko";
  const std::string folder = folderInEnvironment("TMPDIR");
  return (folder.empty() ? "/tmp" : folder) + "/vesko-" + std::to_string(userId());
}

std::string controlPath(std::uint16_t port) { return controlFolder() + "/" + std::to_string(port) + ".sock"; }

}  // namespace vesko
