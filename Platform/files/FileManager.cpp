#include "Platform/files/FileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

#include "Platform/files/FileDescriptor.h"
#include "Platform/process/SystemError.h"
#include "Platform/user/Account.h"

namespace vesko::FileManager {
namespace {

std::string environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

void skipBlanks(std::string_view& text) { text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size())); }

bool skip(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

/// The text up to the closing quote, its escapes resolved; none when the quote is missing.
std::optional<std::string> quotedText(std::string_view rest) {
  std::string text;
  for (std::size_t index = 0; index < rest.size(); ++index) {
    if (rest[index] == '"') return text;
    if (rest[index] == '\\' && index + 1 < rest.size()) ++index;
    text += rest[index];
  }
  return std::nullopt;
}

/// The folder of a line XDG_DOWNLOAD_DIR="...", which is absolute or below $HOME; none for any other line.
std::optional<std::string> downloadsOfLine(std::string_view line, const std::string& home) {
  skipBlanks(line);
  if (!skip(line, "XDG_DOWNLOAD_DIR")) return std::nullopt;
  skipBlanks(line);
  if (!skip(line, "=")) return std::nullopt;
  skipBlanks(line);
  if (!skip(line, "\"")) return std::nullopt;
  const bool belowHome = skip(line, "$HOME");
  const auto value = quotedText(line);
  if (!value) return std::nullopt;
  if (!value->starts_with('/') && !(belowHome && value->empty())) return std::nullopt;
  return withoutTrailingSlashes(belowHome ? home + *value : *value);
}

struct stat statusOf(const std::string& path, std::error_code& error) {
  struct stat status {};
  error = ::stat(path.c_str(), &status) == 0 ? std::error_code() : lastSystemError();
  return status;
}

/// No error when a folder is at `path`.
std::error_code obstacleToFolder(const std::string& path) {
  std::error_code error;
  const auto status = statusOf(path, error);
  if (!error && !S_ISDIR(status.st_mode)) error = std::make_error_code(std::errc::not_a_directory);
  return error;
}

std::string downloadsOfUserDirectories(const std::string& file, const std::string& home) {
  std::string downloads;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    if (auto value = downloadsOfLine(line, home)) downloads = std::move(*value);
  }
  return downloads;
}

}  // namespace

bool fileExistsAtPath(const std::string& path) {
  std::error_code error;
  (void)statusOf(path, error);
  return !error;
}

std::uint64_t sizeOfFileAtPath(const std::string& path, std::error_code& error) {
  const auto status = statusOf(path, error);
  if (error) return 0;
  if (S_ISDIR(status.st_mode)) error = std::make_error_code(std::errc::is_a_directory);
  if (!error && !S_ISREG(status.st_mode)) error = std::make_error_code(std::errc::not_supported);
  return error ? 0 : static_cast<std::uint64_t>(status.st_size);
}

void createDirectoryAtPath(const std::string& path, std::error_code& error) {
  error = obstacleToFolder(path);
  if (error != std::errc::no_such_file_or_directory) return;
  const auto parent = std::filesystem::path(path).parent_path().string();
  error.clear();
  if (!parent.empty()) createDirectoryAtPath(parent, error);
  if (error || ::mkdir(path.c_str(), S_IRWXU | S_IRWXG | S_IRWXO) == 0) return;
  error = lastSystemError();
  // Somebody else may have been quicker.
  if (error == std::errc::file_exists && !obstacleToFolder(path)) error.clear();
}

std::string downloadsDirectory(const std::string& home, const std::string& configHome, std::error_code& error) {
  error.clear();
  const auto account = home.starts_with('/') ? Account{{}, {}, home} : accountOf(userId(), error);
  if (!account) return {};
  const auto homeFolder = withoutTrailingSlashes(account->home);
  // A relative value does not count, by the rules for base directories.
  const auto configFolder = configHome.starts_with('/') ? configHome : homeFolder + "/.config";
  auto downloads = downloadsOfUserDirectories(configFolder + "/user-dirs.dirs", homeFolder);
  // A user directory that is the home folder itself is switched off.
  if (downloads.empty() || downloads == homeFolder) downloads = homeFolder + "/Downloads";
  createDirectoryAtPath(downloads, error);
  return error ? std::string() : downloads;
}

std::string downloadsDirectory(std::error_code& error) {
  return downloadsDirectory(environmentValue("HOME"), environmentValue("XDG_CONFIG_HOME"), error);
}

std::optional<std::string> contentsAtPath(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string{std::istreambuf_iterator<char>(file), {}};
}

void replaceFileAtPath(const std::string& path, std::string_view bytes, std::error_code& error) {
  const std::string partial = path + ".part";
  const FileDescriptor file(::open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666));
  error = file ? std::error_code() : lastSystemError();
  while (!error && !bytes.empty()) {
    const auto count = uninterrupted([&] { return ::write(file.get(), bytes.data(), bytes.size()); });
    if (count < 0) error = lastSystemError();
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  if (!error && ::rename(partial.c_str(), path.c_str()) != 0) error = lastSystemError();
  if (error && file) ::unlink(partial.c_str());
}

std::error_code obstacleToStoringIn(const std::string& path) {
  std::error_code error = obstacleToFolder(path);
  if (!error && ::access(path.c_str(), W_OK | X_OK) != 0) error = lastSystemError();
  return error;
}

std::string canonicalPath(const std::string& path, std::error_code& error) {
  return std::filesystem::canonical(path, error).string();
}

}  // namespace vesko::FileManager
