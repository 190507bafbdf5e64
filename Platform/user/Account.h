#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

namespace vesko {

/// An entry of the account database (passwd(5)); its texts may be any bytes.
struct Account {
  std::string name;  ///< for the login
  std::string gecos;
  std::string home;  ///< folder
};

/// The number of the user that this process acts as. Any thread.
[[nodiscard]] std::uint32_t userId() noexcept;

/// The account of the user with this number; none, with `error` set, when the database does not know it. Any thread.
[[nodiscard]] std::optional<Account> accountOf(std::uint32_t user, std::error_code& error);

}  // namespace vesko
