#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

namespace vesko {

/// An entry of the account database (passwd(5)). Its texts may be any bytes.
struct Account {
  std::string name;   ///< login name
  std::string gecos;  ///< full name and other details, separated by commas
  std::string home;   ///< path of the home folder
};

/// The effective user of this process. Any thread.
[[nodiscard]] std::uint32_t userId() noexcept;

/// The account of a user; none, with `error` set, when the database does not know the user. Any thread.
[[nodiscard]] std::optional<Account> accountOf(std::uint32_t user, std::error_code& error);

}  // namespace vesko
