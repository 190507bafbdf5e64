#include "hosts/cli/SendCommand.h"

#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "Platform/files/FileManager.h"
#include "VeskoKit/PathText.h"
#include "hosts/cli/PeerChoice.h"
#include "hosts/cli/SendAndFollow.h"

namespace vesko {
namespace {

/// A path whose last component is the name to send under. ".", ".." and "/" have no name, so they are resolved.
std::string pathToSend(const std::string& named) {
  const std::string leaf = lastPathComponent(named);
  if (!leaf.empty() && leaf != "." && leaf != "..") return named;
  std::error_code error;
  std::string path = FileManager::canonicalPath(named, error);
  return error ? named : path;
}

/// The target of `path` and the name it is sent under. Paths that agree in both are the same item.
std::pair<std::string, std::string> meaningOf(const std::string& path) {
  std::error_code error;
  std::string target = FileManager::canonicalPath(path, error);
  if (error) target = std::filesystem::path(path).lexically_normal().string();
  return {std::move(target), lastPathComponent(path)};
}

/// The paths without duplicates, such as "a" and "./a".
std::vector<std::string> pathsToSend(const std::vector<std::string>& named) {
  std::vector<std::string> paths;
  std::set<std::pair<std::string, std::string>> known;
  for (const auto& one : named) {
    std::string path = pathToSend(one);
    if (known.insert(meaningOf(path)).second) paths.push_back(std::move(path));
  }
  return paths;
}

/// The error message when two paths have the same name: the receiver could not tell them apart.
std::optional<std::string> complaintAboutNames(const std::vector<std::string>& paths) {
  std::map<std::string, std::string> pathOfName;
  for (const auto& path : paths) {
    const auto [other, isNew] = pathOfName.emplace(lastPathComponent(path), path);
    if (!isNew) {
      return "\"" + other->second + "\" and \"" + path + "\" would arrive under the same name; send them one by one";
    }
  }
  return std::nullopt;
}

}  // namespace

ExitCode runSend(Program& program, const SendOptions& options) {
  const auto paths = pathsToSend(options.paths);
  if (const auto complaint = complaintAboutNames(paths)) {
    program.console.complain(*complaint);
    return ExitCode::usage;
  }
  const PeerOrCode peer = findPeer(program, options.peer, options.wait);
  if (const auto* code = std::get_if<ExitCode>(&peer)) return *code;
  return sendAndFollow(program, std::get<PeerView>(peer), [&](Session& session) { return session.prepare(paths); });
}

}  // namespace vesko
