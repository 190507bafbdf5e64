#include "hosts/cli/ReceiveCommand.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "Platform/FileManager.h"
#include "hosts/common/Session.h"

namespace vesko {
namespace {

/// What keeps items from being received into `folder`; no error when nothing does.
std::error_code obstacleIn(const std::string& folder) {
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) {
    return error ? error : std::make_error_code(std::errc::not_a_directory);
  }
  if (::access(folder.c_str(), W_OK | X_OK) != 0) return {errno, std::generic_category()};
  return {};
}

/// Sets `folder` to where items go, in absolute form; a code when they cannot, and the user has been told.
ExitCode findFolder(Program& program, const ReceiveOptions& options, std::string& folder) {
  const bool isNamed = !options.directory.empty();
  std::error_code error;
  folder = isNamed ? options.directory : FileManager::downloadsDirectory(error);
  if (!error) error = obstacleIn(folder);
  if (!error) folder = FileManager::canonicalPath(folder, error);
  if (!error) return ExitCode::success;
  program.console.complain("cannot receive into " +
                           (isNamed ? "\"" + options.directory + "\"" : "the downloads folder") + ": " +
                           error.message());
  return isNamed ? ExitCode::usage : ExitCode::unexpected;
}

}  // namespace

ExitCode runReceive(Program& program, const ReceiveOptions& options) {
  SessionSettings settings;
  settings.port = program.options.port;
  settings.keepPartial = options.keepPartial;
  if (options.once) settings.incomingLimit = 1;
  if (const ExitCode code = findFolder(program, options, settings.downloadsFolder); code != ExitCode::success) {
    return code;
  }
  Run run(program);
  run.handleInterrupts(ExitCode::success);
  Session session(run.events(), settings);
  if (!session.startReceiving()) {
    run.takeWaitingEvents();
    return ExitCode::startup;
  }
  run.takeEvents([&] { return options.once && run.hasFirstEnded(); });
  run.windDown(session);
  return options.once && run.hasFirstEnded() ? run.codeOfFirst() : ExitCode::success;
}

}  // namespace vesko
