#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "Platform/files/DirectoryHandle.h"

namespace vesko {

/// Remembers the names that one transfer has created, on file systems that take different names for the same one:
/// because they ignore letter case, or how an accent is encoded. On all other file systems it remembers nothing.
///
/// Which names are the same differs between file systems, so it is not computed here. The file system only tells
/// whether a name is taken; this class then tells whether the very same name was created before, or another spelling of
/// it. Not locked.
class ReceivedItemSpellings {
 public:
  /// The number of a folder that was created; names are remembered for each folder.
  using Folder = std::uint64_t;
  static constexpr Folder top = 0;

  /// Finds out, once, whether names must be remembered, by creating a file in `folder`, which is empty, and looking for
  /// it under other spellings. `error` is set when that file cannot be removed again.
  void examine(const DirectoryHandle& folder, std::error_code& error);

  /// True when an existing entry of this name was created under exactly this name; always true where nothing is
  /// remembered.
  [[nodiscard]] bool knows(Folder parent, const std::string& name) const;

  /// Remembers or forgets a name.
  void note(Folder parent, const std::string& name);
  void forget(Folder parent, const std::string& name);

  /// The number of the folder with this name; `top` where nothing is remembered.
  [[nodiscard]] Folder folder(Folder parent, const std::string& name) const;

  /// The name at the top level, if names are remembered and there is only one. The file system may list it in another
  /// spelling.
  [[nodiscard]] std::optional<std::string> onlyNameAtTop() const;

 private:
  using Place = std::pair<Folder, std::string>;

  bool areKept_ = false;
  Folder lastFolder_ = top;
  std::map<Place, Folder> names_;
};

}  // namespace vesko
