#include "hosts/cli/SendAndFollow.h"

#include <utility>

#include "hosts/cli/SessionRun.h"

namespace vesko {

ExitCode sendAndFollow(Program& program, const PeerView& peer,
                       const std::function<PreparedTransfer(Session&)>& prepare) {
  SessionRun run(program);
  Session session(run.events());
  PreparedTransfer transfer = prepare(session);
  if (transfer.items.empty()) {
    run.takeWaitingEvents();
    return transfer.looksLikeText ? ExitCode::usage : ExitCode::incomplete;
  }
  // Until here a signal ends the program at once. From here on it cancels the transfer, which resets the connection, so
  // that the receiver does not take the end for success.
  run.handleInterrupts(ExitCode::interrupted);
  session.send(std::move(transfer), peer);
  run.takeEvents([&run] { return run.hasFirstEnded(); });
  if (!run.hasFirstEnded()) run.windDown(session);
  return run.codeOfFirst();
}

}  // namespace vesko
