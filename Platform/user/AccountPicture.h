#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vesko {

/// Where the current user's picture may be, in order of preference: the icon of AccountsService, then `.face` and
/// `.face.icon` in the home folder.
[[nodiscard]] std::vector<std::string> accountPicturePaths();

/// The current user's picture as PNG, from the first path that has one; none when no path has. Each call looks for the
/// files again, but decodes a file again only when it was replaced or its size or time of modification has changed. Any
/// thread.
class AccountPicture {
 public:
  /// `findPaths` returns where the picture may be.
  explicit AccountPicture(std::function<std::vector<std::string>()> findPaths = accountPicturePaths);
  ~AccountPicture();
  AccountPicture(const AccountPicture&) = delete;
  AccountPicture& operator=(const AccountPicture&) = delete;

  [[nodiscard]] std::optional<std::string> png();

 private:
  struct Cache;
  std::unique_ptr<Cache> cache_;
};

}  // namespace vesko
