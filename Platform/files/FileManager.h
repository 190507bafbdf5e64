#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace vesko::FileManager {

/// True when anything is at `path`, links followed. Any thread.
[[nodiscard]] bool fileExistsAtPath(const std::string& path);

/// The length in bytes of the regular file at `path`, links followed; 0, with `error` set, when that cannot be had. Any
/// thread.
[[nodiscard]] std::uint64_t sizeOfFileAtPath(const std::string& path, std::error_code& error);

/// Makes the folder at `path` and every missing one above it; an existing folder is accepted. Any thread.
void createDirectoryAtPath(const std::string& path, std::error_code& error);

/// The current user's downloads folder, made if it is missing: `XDG_DOWNLOAD_DIR` of the XDG user directories file
/// (`$XDG_CONFIG_HOME/user-dirs.dirs`, by default below `~/.config`), else, and where that is the home folder itself,
/// which means none, `~/Downloads`. `home` and `configHome` stand for the environment's values and may be empty or,
/// which is taken for empty, relative: the account database then names the home folder.
[[nodiscard]] std::string downloadsDirectory(const std::string& home, const std::string& configHome,
                                             std::error_code& error);

/// The same for the environment of this process.
[[nodiscard]] std::string downloadsDirectory(std::error_code& error);

/// All bytes of the file at `path`, which is a small one of the system's; none when it cannot be opened. Any thread.
[[nodiscard]] std::optional<std::string> contentsAtPath(const std::string& path);

/// Puts a file with these bytes at `path`, in place of what may be there; until it is whole, that stays. Any thread.
void replaceFileAtPath(const std::string& path, std::string_view bytes, std::error_code& error);

/// Why this process cannot make entries in the folder at `path`; no error when it can. Any thread.
[[nodiscard]] std::error_code obstacleToStoringIn(const std::string& path);

/// An absolute form of `path` without ".", ".." and links, for a path whose last component does not name anything.
[[nodiscard]] std::string canonicalPath(const std::string& path, std::error_code& error);

}  // namespace vesko::FileManager
