#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace vesko::FileManager {

/// True when anything is at `path`, links followed. Any thread.
[[nodiscard]] bool fileExistsAtPath(const std::string& path);

/// The length in bytes of the regular file at `path`, links followed; 0, with `error` set, when it cannot be had. Any
/// thread.
[[nodiscard]] std::uint64_t sizeOfFileAtPath(const std::string& path, std::error_code& error);

/// Makes the folder at `path` and all missing folders above it. An existing folder is no error. Any thread.
void createDirectoryAtPath(const std::string& path, std::error_code& error);

/// The current user's downloads folder, which is made if it is missing; "" with `error` set when that fails. It is
/// XDG_DOWNLOAD_DIR of the user directories file ($XDG_CONFIG_HOME/user-dirs.dirs, by default in ~/.config). Where that
/// is not set, or is the home folder itself, which means "none", it is ~/Downloads.
///
/// `home` and `configHome` are the values of HOME and XDG_CONFIG_HOME; one that is empty or relative does not count.
/// The home folder is then that of the account database. Any thread.
[[nodiscard]] std::string downloadsDirectory(const std::string& home, const std::string& configHome,
                                             std::error_code& error);

/// The same with the environment of this process.
[[nodiscard]] std::string downloadsDirectory(std::error_code& error);

/// All bytes of the file at `path`; none when it cannot be opened. For small files of the system. Any thread.
[[nodiscard]] std::optional<std::string> contentsAtPath(const std::string& path);

/// Writes a file with these bytes and puts it at `path`, in place of what is there; until it is complete, the old one
/// stays. Any thread.
void replaceFileAtPath(const std::string& path, std::string_view bytes, std::error_code& error);

/// Why this process cannot create entries in the folder at `path`; no error when it can. Any thread.
[[nodiscard]] std::error_code obstacleToStoringIn(const std::string& path);

/// `path` made absolute, without ".", ".." and links. `error` is set when something in it does not exist. Any thread.
[[nodiscard]] std::string canonicalPath(const std::string& path, std::error_code& error);

}  // namespace vesko::FileManager
