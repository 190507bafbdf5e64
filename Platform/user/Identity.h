#pragma once

#include <string>
#include <string_view>

/// Who runs this process on which machine. Each call asks the system anew; texts are UTF-8, with U+FFFD for what is
/// not. Any thread.
namespace vesko::Identity {

/// The current user's short login name; empty when the account database (passwd(5)) does not know the user.
[[nodiscard]] std::string userName();

/// The current user's full name: the GECOS field of the account database up to the first comma, the login name where
/// that is empty.
[[nodiscard]] std::string fullUserName();

/// The machine's name as its user set it (PRETTY_HOSTNAME of machine-info(5)), else its host name, else "localhost".
[[nodiscard]] std::string computerName();

/// The value of `key` in a file of assignments in shell syntax, as machine-info(5) and os-release(5) are; empty when it
/// has none. Of several the last counts.
[[nodiscard]] std::string assignedValue(std::string_view contents, std::string_view key);

}  // namespace vesko::Identity
