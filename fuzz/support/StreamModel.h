#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/support/Check.h"
#include "fuzz/support/Input.h"

/// What a transfer's bytes say, read a second time and as simply as can be.
namespace vesko::fuzz {

/// By path, each component behind a "/": the bytes of a file, or none for a folder. The path "" is what holds the rest.
using Tree = std::map<std::string, std::optional<std::string>>;

struct StreamContents {
  Tree tree;
  std::optional<std::string> text;
  std::size_t topLevelEntries = 0;
};

inline std::uint64_t takeNumber(Input& bytes) {
  std::uint64_t number = 0;
  for (int shift = 0; shift < 64; shift += 8) number |= std::uint64_t{bytes.takeByte()} << shift;
  return number;
}

/// The path of an element, with the folders above it put into `tree`.
inline std::string pathOf(std::string_view name, Tree& tree) {
  std::string path;
  while (!name.empty()) {
    const auto component = name.substr(0, name.find('/'));
    name.remove_prefix(std::min(component.size() + 1, name.size()));
    if (component.empty() || component == ".") continue;
    tree.emplace(path, std::nullopt);
    (path += '/') += component;
  }
  return path;
}

/// Of a stream that is whole and whose names are all good.
inline StreamContents contentsOf(std::string_view stream) {
  Input bytes(reinterpret_cast<const std::uint8_t*>(stream.data()), stream.size());
  StreamContents contents;
  const auto count = takeNumber(bytes);
  (void)bytes.take(8);
  for (std::uint64_t i = 0; i < count; ++i) {
    const auto name = bytes.takeUpTo('\0');
    const auto size = takeNumber(bytes);
    const bool isFolder = size == ~std::uint64_t{0};
    const auto body = isFolder ? std::string_view() : bytes.take(size);
    if (count == 1 && name == "___VIRNO___TEXT___" && !isFolder) {
      contents.text = body;
      continue;
    }
    const auto path = pathOf(name, contents.tree);
    contents.tree[path] = isFolder ? std::nullopt : std::optional<std::string>(body);
  }
  for (const auto& [path, body] : contents.tree) contents.topLevelEntries += path.rfind('/') == 0 ? 1 : 0;
  return contents;
}

inline std::string bytesOf(int descriptor) {
  std::string bytes;
  std::array<char, 4096> buffer;
  for (ssize_t count = 0; (count = ::read(descriptor, buffer.data(), buffer.size())) > 0;) {
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return bytes;
}

/// Adds what `name` in the open folder `parent` is, and holds, as `path`. Each step is from the folder before it: the
/// whole way would be too long for the system, or for one's patience.
inline void readTree(int parent, const char* name, const std::string& path, Tree& tree) {
  const int descriptor = ::openat(parent, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  check(descriptor >= 0, "what arrived can be read", [&] { return path; });
  DIR* const folder = ::fdopendir(descriptor);
  if (folder == nullptr) {
    tree[path] = bytesOf(descriptor);
    ::close(descriptor);
    return;
  }
  tree[path] = std::nullopt;
  while (const dirent* const entry = ::readdir(folder)) {
    const std::string_view below = entry->d_name;
    if (below != "." && below != "..") readTree(descriptor, entry->d_name, path + "/" + entry->d_name, tree);
  }
  ::closedir(folder);
}

}  // namespace vesko::fuzz
