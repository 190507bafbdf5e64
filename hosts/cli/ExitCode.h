#pragma once

namespace vesko {

/// The exit codes of the program. Scripts rely on them; docs/command-line.md lists them.
enum class ExitCode : int {
  success = 0,          ///< all of it done
  unexpected = 1,       ///< unexpected error
  usage = 2,            ///< invalid command line or input
  noSuchPeer = 3,       ///< no such peer, or more than one
  couldNotConnect = 4,  ///< could not connect; nothing was sent
  brokeOff = 5,         ///< the transfer failed after it was connected
  incomplete = 6,       ///< some items could not be read or stored; the others were transferred
  startup = 7,          ///< an endpoint could not be opened
  interrupted = 130,    ///< stopped by a signal
};

}  // namespace vesko
