#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Operations on paths and names as texts. None asks the file system. Any thread.
///
/// Components are separated by "/". Slashes at the end of a path are ignored; the path "/" has "/" as its only
/// component. "." and ".." are names like any others here.
namespace vesko {

/// `path` and `pathComponent` with one "/" between them and none at the end. An empty path yields the component,
/// unchanged. A component that is empty or only slashes adds nothing.
[[nodiscard]] std::string stringByAppendingPathComponent(std::string_view path, std::string_view pathComponent);

/// `path` without its last component: "/a/b" for "/a/b/c.txt", "/" for "/a" and "/", "" for "a".
[[nodiscard]] std::string stringByDeletingLastPathComponent(std::string_view path);

/// The components joined in order, the first one unchanged: "/" as the first makes an absolute path.
[[nodiscard]] std::string fromPathComponents(const std::vector<std::string>& pathComponents);

/// The last component: "c.txt" for "/a/b/c.txt", "b" for "/a/b/", "/" for "/", "" for "".
[[nodiscard]] std::string lastPathComponent(std::string_view path);

/// What follows the last dot of the last component: "gz" for "backup.tar.gz". Empty when there is no dot, nothing after
/// it or nothing before it, as in ".bashrc".
[[nodiscard]] std::string pathExtension(std::string_view path);

/// `path` without its extension and the dot before that. Slashes at the end are removed in any case.
[[nodiscard]] std::string stringByDeletingPathExtension(std::string_view path);

/// `text` without the characters that are unsafe in file names on some system: / \ : * < > ? % |
[[nodiscard]] std::string sanitizedString(std::string_view text);

}  // namespace vesko
