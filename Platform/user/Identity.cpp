#include "Platform/user/Identity.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "Platform/files/FileManager.h"
#include "Platform/text/TextEncoding.h"
#include "Platform/user/Account.h"

namespace vesko::Identity {
namespace {

Account currentAccount() {
  std::error_code unknown;
  return accountOf(userId(), unknown).value_or(Account());
}

std::string hostName() {
  std::array<char, 256> name{};  // longer than any that Linux keeps
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : std::string();
}

/// The value that `text` begins with, by the shell's rules for quotes and backslashes. Expansions are not made: these
/// files must not need any.
std::string unquoted(std::string_view text) {
  constexpr std::string_view escapable = "\"\\$`";  // between double quotes; elsewhere any character is
  std::string value;
  char quote = '\0';
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char character = text[index];
    const bool isNextEscapable =
        index + 1 < text.size() && (quote == '\0' || escapable.find(text[index + 1]) != std::string_view::npos);
    if (character == '\\' && quote != '\'' && isNextEscapable) {
      value += text[++index];
    } else if (quote == '\0' && (character == '"' || character == '\'')) {
      quote = character;
    } else if (quote != '\0' && character == quote) {
      quote = '\0';
    } else if (quote == '\0' && (character == ' ' || character == '\t' || character == '\r')) {
      break;
    } else {
      value += character;
    }
  }
  return value;
}

}  // namespace

std::string userName() { return withReplacements(currentAccount().name); }

std::string fullUserName() {
  const Account account = currentAccount();
  const std::string fullName = account.gecos.substr(0, account.gecos.find(','));
  return withReplacements(fullName.empty() ? account.name : fullName);
}

std::string computerName() {
  const std::string contents = FileManager::contentsAtPath("/etc/machine-info").value_or("");
  std::string name = assignedValue(contents, "PRETTY_HOSTNAME");
  if (name.empty()) name = withReplacements(hostName());
  return name.empty() ? "localhost" : name;
}

std::string assignedValue(std::string_view contents, std::string_view key) {
  std::string value;
  while (!contents.empty()) {
    std::string_view line = contents.substr(0, contents.find('\n'));
    contents.remove_prefix(std::min(line.size() + 1, contents.size()));
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const bool isAssigned = line.starts_with(key) && line.substr(key.size()).starts_with('=');
    if (isAssigned) value = unquoted(line.substr(key.size() + 1));
  }
  return withReplacements(value);
}

}  // namespace vesko::Identity
