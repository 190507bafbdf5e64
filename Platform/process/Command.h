#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <system_error>
#include <vector>

namespace vesko {

struct CommandResult {
  int exitCode = -1;   ///< minus a signal's number when one ended it
  std::string output;  ///< what it wrote to standard output
};

/// Bytes; far more than lists of rules have, and no burden to hold.
constexpr std::size_t commandOutputLimit = 4U << 20U;

/// Runs a program with these arguments, its name the first, and waits for its end. It is looked for in the folders of
/// PATH, then where the tools of administrators are; no shell is involved. It reads nothing, and what it writes to
/// standard error goes nowhere. Any thread.
///
/// `error` is set when there is no result: `std::errc::no_such_file_or_directory` when there is no such program,
/// `std::errc::timed_out` when it did not end within `limit` and `std::errc::file_too_large` when it wrote more than
/// `commandOutputLimit`; in both cases it has been killed.
[[nodiscard]] CommandResult runCommand(const std::vector<std::string>& arguments, std::chrono::seconds limit,
                                       std::error_code& error);

}  // namespace vesko
