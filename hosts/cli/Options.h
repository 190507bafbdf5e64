#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "VeskoKit/VeskoServer.h"
#include "hosts/cli/ExitCode.h"
#include "hosts/common/session/IPv4Range.h"

namespace vesko {

struct CommonOptions {
  std::uint16_t port = VeskoServer::defaultPort;
  bool json = false;
  bool quiet = false;
  std::string logFile;  ///< empty: no log
};

/// How long other machines may take to answer.
using Wait = std::chrono::duration<double>;
constexpr Wait defaultWait{1.0};

struct SendOptions {
  std::string peer;  ///< empty: the user is to choose
  Wait wait = defaultWait;
  std::vector<std::string> paths;
};

struct TextOptions {
  std::string peer;  ///< as above
  Wait wait = defaultWait;
  std::optional<std::string> text;  ///< none: standard input holds it
};

struct ReceiveOptions {
  std::string directory;  ///< empty: the user's downloads folder
  bool once = false;
  bool keepPartial = false;
  std::vector<IPv4Range> allowed;                                        ///< addresses and networks; none: everybody
  std::uint64_t maximumSize = VeskoIncomingTransferSettings::unlimited;  ///< bytes
  bool ask = false;
};

struct PeersOptions {
  Wait wait = defaultWait;
  bool watch = false;
  std::string avatarFolder;  ///< where avatars are written to; empty: nowhere
};

struct DoctorOptions {};

/// What the command line asks for.
struct Options {
  CommonOptions common;
  std::variant<SendOptions, TextOptions, ReceiveOptions, PeersOptions, DoctorOptions> command;
};

/// Reads the command line. When that is all there is to do, since it asks for help or is wrong, the user has been told
/// and the result is the program's exit code.
[[nodiscard]] std::variant<Options, ExitCode> parseOptions(int argumentCount, const char* const* arguments);

}  // namespace vesko
