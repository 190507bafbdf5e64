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

/// The path that `named` stands for, ending in the name that it is to be sent under: "." and the like have none.
std::string pathToSend(const std::string& named) {
  const std::string leaf = lastPathComponent(named);
  if (!leaf.empty() && leaf != "." && leaf != "..") return named;
  std::error_code error;
  std::string path = FileManager::canonicalPath(named, error);
  return error ? named : path;
}

/// What `path` leads to, and the name it is sent under: two paths that agree in both say the same.
std::pair<std::string, std::string> meaningOf(const std::string& path) {
  std::error_code error;
  std::string target = FileManager::canonicalPath(path, error);
  if (error) target = std::filesystem::path(path).lexically_normal().string();
  return {std::move(target), lastPathComponent(path)};
}

/// Each path once, however it is spelt.
std::vector<std::string> pathsToSend(const std::vector<std::string>& named) {
  std::vector<std::string> paths;
  std::set<std::pair<std::string, std::string>> known;
  for (const auto& one : named) {
    std::string path = pathToSend(one);
    if (known.insert(meaningOf(path)).second) paths.push_back(std::move(path));
  }
  return paths;
}

/// The complaint when two paths end in the same name: one would replace the other where they arrive.
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
