#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "Platform/files/DirectoryHandle.h"

namespace vesko {

/// The names that one transfer has made where the file system takes names of different bytes for one: because letter
/// case does not count there, say, or how an accent is written. Elsewhere nothing is kept.
///
/// Which names are one is the file system's own affair, and differs from one to the next. All that is asked of it is
/// whether a name is taken; only the spellings kept here then tell whether by that very name. Not locked.
class ReceivedItemSpellings {
 public:
  /// A folder that was made: names are kept by where they are.
  using Folder = std::uint64_t;
  static constexpr Folder top = 0;

  /// Tries, once, whether names have to be kept for what is made in `folder`, which is empty. An error when what was
  /// made for that cannot be removed.
  void examine(const DirectoryHandle& folder, std::error_code& error);

  /// True unless the name, should it be taken, may be taken by one that is spelled differently.
  [[nodiscard]] bool knows(Folder parent, const std::string& name) const;

  void note(Folder parent, const std::string& name);
  void forget(Folder parent, const std::string& name);

  /// The folder of a name that was noted.
  [[nodiscard]] Folder folder(Folder parent, const std::string& name) const;

  /// The name at the top, if names are kept and this is the only one there: a file system may list another spelling.
  [[nodiscard]] std::optional<std::string> onlyNameAtTop() const;

 private:
  using Place = std::pair<Folder, std::string>;

  bool areKept_ = false;
  Folder lastFolder_ = top;
  std::map<Place, Folder> names_;
};

}  // namespace vesko
