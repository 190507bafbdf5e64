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

/// How long to wait for answers of other machines, seconds.
using Wait = std::chrono::duration<double>;
constexpr Wait defaultWait{1.0};

struct SendOptions {
  std::string peer;  ///< empty: the user chooses at the terminal
  Wait wait = defaultWait;
  std::vector<std::string> paths;
};

struct TextOptions {
  std::string peer;  ///< as in SendOptions
  Wait wait = defaultWait;
  std::optional<std::string> text;  ///< none: read it from standard input
};

struct ReceiveOptions {
  std::string directory;  ///< empty: the user's downloads folder
  bool once = false;
  bool keepPartial = false;
  std::vector<IPv4Range> allowed;  ///< addresses and networks; empty: every sender
  std::uint64_t maximumSize = VeskoIncomingTransferSettings::unlimited;  ///< bytes
  bool ask = false;
};

struct PeersOptions {
  Wait wait = defaultWait;
  bool watch = false;
  std::string avatarFolder;  ///< folder for the pictures; empty: do not save them
};

struct DoctorOptions {};

/// The parsed command line.
struct Options {
  CommonOptions common;
  std::variant<SendOptions, TextOptions, ReceiveOptions, PeersOptions, DoctorOptions> command;
};

/// Parses the command line. For --help, --version and errors it prints the text itself and returns the exit code of the
/// program.
[[nodiscard]] std::variant<Options, ExitCode> parseOptions(int argumentCount, const char* const* arguments);

}  // namespace vesko
