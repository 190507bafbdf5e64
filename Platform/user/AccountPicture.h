#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vesko {

/// Where the current user's picture may be, the first that is there counting: AccountsService's icon for the user, then
/// `.face` and `.face.icon` of the home folder.
[[nodiscard]] std::vector<std::string> accountPicturePaths();

/// The current user's picture as PNG, from the first path that holds one; none when none does. Looks for the paths and
/// at their files anew with each call, and decodes one again only when its size or its time of modification has
/// changed. Any thread.
class AccountPicture {
 public:
  /// `findPaths` tells where the picture may be.
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
