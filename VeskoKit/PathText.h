#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Operations on paths and names as texts. None touches the file system; all may be used on any thread.
///
/// Components are separated by "/", and slashes at the end of a path are ignored, but "/" is its own only component.
/// "." and ".." are names like any other here.
namespace vesko {

/// `path` and `pathComponent` with one "/" between them and none at the end. An empty path yields the component itself,
/// unchanged; a component that is empty or only slashes adds nothing.
[[nodiscard]] std::string stringByAppendingPathComponent(std::string_view path, std::string_view pathComponent);

/// `path` without its last component: "/a/b" for "/a/b/c.txt", "/" for "/a" and "/", "" for "a".
[[nodiscard]] std::string stringByDeletingLastPathComponent(std::string_view path);

/// The components joined in order, the first one unchanged: "/" as the first makes an absolute path.
[[nodiscard]] std::string fromPathComponents(const std::vector<std::string>& pathComponents);

/// The last component: "c.txt" for "/a/b/c.txt", "b" for "/a/b/", "/" for "/", "" for "".
[[nodiscard]] std::string lastPathComponent(std::string_view path);

/// What follows the last dot of the last component. Empty when there is no dot, nothing behind it, or nothing before
/// it:
/// ".bashrc" has none, and "backup.tar.gz" has "gz".
[[nodiscard]] std::string pathExtension(std::string_view path);

/// `path` without its extension and the dot before it; without an extension only slashes at the end go.
[[nodiscard]] std::string stringByDeletingPathExtension(std::string_view path);

/// `text` without the characters that are unsafe in file names on some system: / \ : * < > ? % |
[[nodiscard]] std::string sanitizedString(std::string_view text);

}  // namespace vesko
