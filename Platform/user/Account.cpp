#include "Platform/user/Account.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace vesko {
namespace {

/// Not every source of accounts has every text.
std::string textOf(const char* text) { return text == nullptr ? std::string() : text; }

}  // namespace

std::uint32_t userId() noexcept { return ::geteuid(); }

std::optional<Account> accountOf(std::uint32_t user, std::error_code& error) {
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  int failure = 0;
  while ((failure = ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr) {
    error = {failure != 0 ? failure : ENOENT, std::system_category()};
    return std::nullopt;
  }
  error.clear();
  return Account{textOf(found->pw_name), textOf(found->pw_gecos), textOf(found->pw_dir)};
}

}  // namespace vesko
