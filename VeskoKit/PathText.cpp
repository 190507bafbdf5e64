#include "VeskoKit/PathText.h"

#include <algorithm>

namespace vesko {
namespace {

// A path of slashes only keeps one.
std::string_view withoutTrailingSlashes(std::string_view path) noexcept {
  const auto last = path.find_last_not_of('/');
  return path.substr(0, last == std::string_view::npos ? 1 : last + 1);
}

std::string_view lastComponentOf(std::string_view path) noexcept {
  path = withoutTrailingSlashes(path);
  return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

// The extension with its dot.
std::string_view dottedExtensionOf(std::string_view path) noexcept {
  const auto name = lastComponentOf(path);
  const auto dot = name.rfind('.');
  const bool hasExtension = dot != std::string_view::npos && dot > 0 && dot + 1 < name.size();
  return hasExtension ? name.substr(dot) : std::string_view();
}

}  // namespace

std::string stringByAppendingPathComponent(std::string_view path, std::string_view pathComponent) {
  if (path.empty()) return std::string(pathComponent);
  path = withoutTrailingSlashes(path);
  pathComponent.remove_prefix(std::min(pathComponent.find_first_not_of('/'), pathComponent.size()));
  pathComponent = withoutTrailingSlashes(pathComponent);
  if (pathComponent.empty()) return std::string(path);
  std::string joined;
  joined.reserve(path.size() + 1 + pathComponent.size());
  joined += path;
  if (path != "/") joined += '/';
  return joined += pathComponent;
}

std::string stringByDeletingLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  const auto slash = path.rfind('/');
  return slash == std::string_view::npos ? std::string()
                                         : std::string(withoutTrailingSlashes(path.substr(0, slash + 1)));
}

std::string fromPathComponents(const std::vector<std::string>& pathComponents) {
  std::string path;
  for (const auto& component : pathComponents) path = stringByAppendingPathComponent(path, component);
  return path;
}

std::string lastPathComponent(std::string_view path) { return std::string(lastComponentOf(path)); }

std::string pathExtension(std::string_view path) {
  const auto extension = dottedExtensionOf(path);
  return std::string(extension.empty() ? extension : extension.substr(1));
}

std::string stringByDeletingPathExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  path.remove_suffix(dottedExtensionOf(path).size());
  return std::string(path);
}

std::string sanitizedString(std::string_view text) {
  std::string kept(text);
  std::erase_if(
      kept, [](char character) { return std::string_view("/\\:*<>?%|").find(character) != std::string_view::npos; });
  return kept;
}

}  // namespace vesko
