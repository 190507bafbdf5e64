#include "hosts/cli/ReceiveCommand.h"

#include <optional>
#include <system_error>

#include "Platform/files/FileManager.h"
#include "hosts/cli/Questions.h"
#include "hosts/cli/SessionRun.h"
#include "hosts/common/session/Session.h"

namespace vesko {
namespace {

/// Sets `folder` to the absolute path for received items. Reports an error to the user and returns its exit code when
/// nothing can be stored there.
ExitCode findFolder(Program& program, const ReceiveOptions& options, std::string& folder) {
  const bool isNamed = !options.directory.empty();
  std::error_code error;
  folder = isNamed ? options.directory : FileManager::downloadsDirectory(error);
  if (!error) error = FileManager::obstacleToStoringIn(folder);
  if (!error) folder = FileManager::canonicalPath(folder, error);
  if (!error) return ExitCode::success;
  program.console.complain("cannot receive into " +
                           (isNamed ? "\"" + options.directory + "\"" : "the downloads folder") + ": " +
                           error.message());
  return isNamed ? ExitCode::usage : ExitCode::unexpected;
}

}  // namespace

ExitCode runReceive(Program& program, const ReceiveOptions& options) {
  if (options.ask && !(Console::inputIsTerminal() && program.console.showsBars())) {
    program.console.complain("--ask needs a terminal for its questions");
    return ExitCode::usage;
  }
  SessionSettings settings;
  settings.port = program.options.port;
  settings.keepPartial = options.keepPartial;
  settings.maximumSize = options.maximumSize;
  settings.admission = {options.allowed, options.ask};
  if (options.once) settings.incomingLimit = 1;
  if (const ExitCode code = findFolder(program, options, settings.downloadsFolder); code != ExitCode::success) {
    return code;
  }
  SessionRun run(program);
  run.handleInterrupts(ExitCode::success);
  Session session(run.events(), settings);
  std::optional<Questions> questions;
  if (options.ask) {
    questions.emplace(program.console, [&](TransferId id, bool accepted) { session.answer(id, accepted); });
    run.alsoTell([&](const Event& event) { questions->take(event); });
  }
  if (!session.startReceiving()) {
    run.takeWaitingEvents();
    return ExitCode::startup;
  }
  if (const std::error_code obstacle = session.controlObstacle()) {
    program.console.complain("cannot open the control channel: " + obstacle.message() +
                             "; other vesko commands cannot ask this one for the machines it knows");
  }
  run.takeEvents([&] { return options.once && run.hasFirstEnded(); });
  run.windDown(session);
  return options.once && run.hasFirstEnded() ? run.codeOfFirst() : ExitCode::success;
}

}  // namespace vesko
