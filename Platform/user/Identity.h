#pragma once

#include <string>
#include <string_view>

/// Names of the current user and of this machine. Each call asks the system again. Texts are UTF-8; bytes that are not
/// are replaced by U+FFFD. Any thread.
namespace vesko::Identity {

/// The current user's login name; empty when the account database (passwd(5)) does not know the user.
[[nodiscard]] std::string userName();

/// The current user's full name: the GECOS field of the account database up to the first comma, or the login name when
/// that is empty.
[[nodiscard]] std::string fullUserName();

/// The machine's name as people set it (PRETTY_HOSTNAME of machine-info(5)), else its host name, else "localhost".
[[nodiscard]] std::string computerName();

/// The value of `key` in the text of a file of shell assignments, such as machine-info(5) and os-release(5). Empty when
/// it is not assigned; the last of several assignments counts.
[[nodiscard]] std::string assignedValue(std::string_view contents, std::string_view key);

}  // namespace vesko::Identity
