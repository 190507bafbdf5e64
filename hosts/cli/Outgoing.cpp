#include "hosts/cli/Outgoing.h"

namespace vesko {

std::optional<PeerAddress> findPeer(Program& program, const std::string& name) {
  auto peer = parsePeerAddress(name, program.options.port);
  if (!peer) {
    program.console.complain("\"" + name +
                             "\" is not an address: ADDRESS or ADDRESS:PORT with an IPv4 address such as 192.0.2.7 is "
                             "needed, names are not looked up");
  }
  return peer;
}

ExitCode followTransfer(Program& program, const std::function<bool(Session&)>& start) {
  Run run(program);
  Session session(run.events());
  if (!start(session)) {
    run.takeWaitingEvents();
    return ExitCode::incomplete;
  }
  run.handleInterrupts(ExitCode::interrupted);
  run.takeEvents([&run] { return run.hasFirstEnded(); });
  if (!run.hasFirstEnded()) run.windDown(session);
  return run.codeOfFirst();
}

}  // namespace vesko
