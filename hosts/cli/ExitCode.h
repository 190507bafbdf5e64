#pragma once

namespace vesko {

/// How the program ends, for scripts to rely on.
enum class ExitCode : int {
  success = 0,          ///< all of it done
  unexpected = 1,       ///< an error nobody foresaw
  usage = 2,            ///< the command line asks for what cannot be
  noSuchPeer = 3,       ///< the peer is not known
  couldNotConnect = 4,  ///< nothing was sent
  brokeOff = 5,         ///< the transfer ended before its time
  incomplete = 6,       ///< some could not be read or stored; the rest went through
  startup = 7,          ///< an endpoint could not be opened
  interrupted = 130,    ///< stopped by a signal
};

}  // namespace vesko
