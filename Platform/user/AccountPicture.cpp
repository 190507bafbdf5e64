#include "Platform/user/AccountPicture.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <sstream>
#include <string_view>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "Platform/user/Account.h"
#include "Platform/user/NSImage.h"

namespace vesko {
namespace {

// More than any camera makes of a face; bytes.
constexpr std::uint64_t maximumPictureFile = std::uint64_t{16} << 20;

// A page of settings, in fact some lines; bytes.
constexpr std::uint64_t maximumSettingsFile = std::uint64_t{64} << 10;

/// Attributes that change when a file is rewritten or replaced by another one.
struct FileState {
  dev_t device;
  ino_t inode;
  std::uint64_t length;
  std::int64_t seconds;
  std::int64_t nanoseconds;
  friend bool operator==(const FileState&, const FileState&) = default;
};

std::optional<FileState> stateOf(const FileHandle& file) {
  struct stat status {};
  if (::fstat(file.descriptor(), &status) != 0) return std::nullopt;
  return FileState{status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size), status.st_mtim.tv_sec,
                   status.st_mtim.tv_nsec};
}

/// The first `length` bytes, fewer where the file ends before; none when it cannot be read.
std::optional<std::string> contentsOf(const FileHandle& file, std::uint64_t length) {
  std::string contents(length, '\0');
  std::error_code error;
  contents.resize(file.readAt(0, contents, error));
  return error ? std::nullopt : std::optional(std::move(contents));
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const auto first = text.find_first_not_of(blanks);
  return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

/// The icon in an account's settings, which are in the form of key files; empty when they name none.
std::string iconOfSettings(const std::string& settings) {
  std::string icon;
  bool isInGroup = false;
  std::istringstream lines(settings);
  for (std::string text; std::getline(lines, text);) {
    const auto line = trimmed(text);
    if (line.starts_with('[')) isInGroup = line == "[User]";
    const auto equals = line.find('=');
    const bool isIcon = isInGroup && equals != line.npos && trimmed(line.substr(0, equals)) == "Icon";
    if (isIcon) icon = trimmed(line.substr(equals + 1));
  }
  return icon;
}

void addPathsOfLogin(const std::string& login, std::vector<std::string>& paths) {
  // A name that is a path would lead elsewhere.
  if (login.empty() || login == "." || login == ".." || login.find('/') != login.npos) return;
  const std::string folder = "/var/lib/AccountsService/";
  std::error_code error;
  const auto file = FileHandle::forReadingAtPath(folder + "users/" + login, error);
  const auto settings = file ? contentsOf(*file, maximumSettingsFile) : std::nullopt;
  if (auto icon = iconOfSettings(settings.value_or("")); icon.starts_with('/')) paths.push_back(std::move(icon));
  paths.push_back(folder + "icons/" + login);
}

/// A file that may hold a picture, and what it held when it was last looked at.
class PictureFile {
 public:
  explicit PictureFile(std::string path) : path_(std::move(path)) {}

  [[nodiscard]] const std::optional<std::string>& png() {
    std::error_code error;
    const auto file = FileHandle::forReadingAtPath(path_, error);
    const auto state = file ? stateOf(*file) : std::nullopt;
    if (state && state == state_) return png_;
    state_ = state;
    png_.reset();
    if (state && state->length <= maximumPictureFile) decode(*file, state->length);
    return png_;
  }

 private:
  void decode(const FileHandle& file, std::uint64_t length) {
    const auto contents = contentsOf(file, length);
    // What cannot be read now may be readable the next time.
    if (!contents) state_.reset();
    const auto image = contents ? NSImage::decode(*contents) : std::nullopt;
    if (image) png_ = image->pngRepresentation();
  }

  std::string path_;
  std::optional<FileState> state_;
  std::optional<std::string> png_;
};

}  // namespace

std::vector<std::string> accountPicturePaths() {
  std::error_code unknown;
  const auto account = accountOf(userId(), unknown).value_or(Account());
  std::vector<std::string> paths;
  addPathsOfLogin(account.name, paths);
  const char* value = std::getenv("HOME");
  const std::string home = value != nullptr && *value == '/' ? value : account.home;
  if (!home.starts_with('/')) return paths;
  for (const char* name : {".face", ".face.icon"}) paths.push_back(std::filesystem::path(home) / name);
  return paths;
}

struct AccountPicture::Cache {
  std::function<std::vector<std::string>()> findPaths;
  std::mutex mutex;
  std::map<std::string, PictureFile> files;  // by path
};

AccountPicture::AccountPicture(std::function<std::vector<std::string>()> findPaths)
    : cache_(std::make_unique<Cache>()) {
  cache_->findPaths = std::move(findPaths);
}

AccountPicture::~AccountPicture() = default;

std::optional<std::string> AccountPicture::png() {
  const std::scoped_lock lock(cache_->mutex);
  const auto paths = cache_->findPaths();
  std::erase_if(cache_->files, [&](const auto& file) { return std::ranges::find(paths, file.first) == paths.end(); });
  for (const auto& path : paths) {
    if (const auto& png = cache_->files.try_emplace(path, path).first->second.png()) return png;
  }
  return std::nullopt;
}

}  // namespace vesko
