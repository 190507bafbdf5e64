#include "hosts/cli/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <iterator>

namespace vesko {
namespace {

constexpr const char* exitCodes =
    "Exit codes:\n"
    "  0 all done          1 unexpected error   2 usage            3 no such peer\n"
    "  4 cannot connect    5 broke off          6 some left out    7 cannot listen\n"
    "  130 interrupted\n";

/// Everything the parser writes to, so that commands that were not given cost nothing.
struct Parsed {
  CommonOptions common;
  SendOptions send;
  TextOptions text;
  ReceiveOptions receive;
  std::vector<std::string> allowed;
  PeersOptions peers;
  double wait = defaultWait.count();
};

void addCommon(CLI::App& app, CommonOptions& common) {
  app.add_option("--port", common.port,
                 "Service ports N and N + 1; the port of a PEER given without one (default 4644)")
      ->check(CLI::Range(1, 65535).description(""))
      ->type_name("N");
  app.add_flag("--json", common.json, "Print events as JSON, one object a line");
  app.add_flag("--quiet", common.quiet, "No progress and no notices, only results and errors");
  app.add_option("--log", common.logFile, "Append a log of what happens to FILE")->type_name("FILE");
  app.set_version_flag("--version", "vesko " VESKO_VERSION);
}

void addWait(CLI::App& command, double& wait) {
  constexpr double longest = 3600;
  command.add_option("--wait", wait, "How long other machines may take to answer (default 1)")
      ->check(CLI::Range(0.0, longest).description(""))
      ->type_name("SECONDS");
}

void addPeer(CLI::App& command, std::string& peer, double& wait) {
  command.add_option("--to", peer, "Whom to send to: any part of a name, ADDRESS or ADDRESS:PORT")->type_name("PEER");
  addWait(command, wait);
}

CLI::App& addCommand(CLI::App& app, const char* name, const char* description, CommonOptions& common) {
  CLI::App& command = *app.add_subcommand(name, description);
  addCommon(command, common);
  return command;
}

/// What is wrong with it; "" when nothing is.
std::string checkNetwork(const std::string& text) {
  return parseNetwork(text) ? "" : "\"" + text + "\" is neither an IPv4 address nor a network such as 192.168.1.0/24";
}

/// Makes the plain number of it. What is wrong with it; "" when nothing is.
std::string readSize(std::string& text) {
  std::string complaint = "\"" + text + "\" is no number of bytes such as 1500, 500M or 2Gi";
  // The parser would take "-1" for the largest number there is.
  if (text.empty() || text.front() < '0' || text.front() > '9') return complaint;
  try {
    return CLI::AsSizeValue(true)(text).empty() ? "" : complaint;
  } catch (const CLI::ValidationError&) {
    return complaint;
  }
}

void describe(CLI::App& app, Parsed& parsed) {
  app.require_subcommand(1);
  app.footer(exitCodes);
  addCommon(app, parsed.common);

  CLI::App& send = addCommand(app, "send", "Send files and folders", parsed.common);
  addPeer(send, parsed.send.peer, parsed.wait);
  send.add_option("PATH", parsed.send.paths, "What to send")->required()->type_name("");

  CLI::App& text = addCommand(app, "text", "Send a snippet of text", parsed.common);
  addPeer(text, parsed.text.peer, parsed.wait);
  text.add_option("TEXT", parsed.text.text, "The text; \"-\" or none: what standard input holds")->type_name("");

  CLI::App& receive = addCommand(app, "receive", "Receive until interrupted", parsed.common);
  receive.add_option("--dir", parsed.receive.directory, "Where items go (default: your downloads folder)")
      ->type_name("DIR");
  receive.add_flag("--once", parsed.receive.once, "End after the first transfer");
  receive.add_flag("--keep-partial", parsed.receive.keepPartial,
                   "Keep what had fully arrived of a transfer that fails");
  receive
      .add_option("--allow", parsed.allowed,
                  "Let in only this address or network, such as 192.168.1.0/24; may be repeated")
      ->allow_extra_args(false)
      ->check(checkNetwork)
      ->type_name("ADDRESS|NETWORK");
  receive
      .add_option("--max-size", parsed.receive.maximumSize,
                  "Refuse transfers of more than that; 500M and 2Gi are understood")
      ->transform(CLI::Validator(readSize, ""))
      ->type_name("BYTES");
  receive.add_flag("--ask", parsed.receive.ask, "Ask at the terminal about each transfer before anything is stored");

  CLI::App& peers = addCommand(app, "peers", "List the machines that can be sent to", parsed.common);
  addWait(peers, parsed.wait);
  peers.add_flag("--watch", parsed.peers.watch, "Go on telling who comes and goes, until interrupted");

  peers.add_option("--save-avatars", parsed.peers.avatarFolder, "Write their users' pictures to DIR, named by address")
      ->excludes("--watch")
      ->type_name("DIR");

  addCommand(app, "doctor", "Find out why nobody is found", parsed.common);
}

/// The parser takes "[a,b]" for a list of two and "{}" for an empty one; behind "./" it sees the path it is.
std::string protectedPath(const std::string& argument) {
  const bool looksLikeList = argument.starts_with('[') && argument.ends_with(']');
  return looksLikeList || argument == "{}" ? "./" + argument : argument;
}

/// In the reverse order that the parser wants.
std::vector<std::string> argumentsOf(int argumentCount, const char* const* arguments) {
  std::vector<std::string> all(arguments + std::min(argumentCount, 1), arguments + argumentCount);
  const auto send = std::find(all.begin(), all.end(), "send");
  std::transform(send, all.end(), send, protectedPath);
  std::reverse(all.begin(), all.end());
  return all;
}

Options optionsOf(const CLI::App& app, Parsed parsed) {
  std::ranges::transform(parsed.allowed, std::back_inserter(parsed.receive.allowed),
                         [](const std::string& text) { return parseNetwork(text).value(); });
  parsed.send.wait = parsed.text.wait = parsed.peers.wait = Wait(parsed.wait);
  if (app.got_subcommand("send")) return {std::move(parsed.common), std::move(parsed.send)};
  if (app.got_subcommand("peers")) return {std::move(parsed.common), parsed.peers};
  if (app.got_subcommand("doctor")) return {std::move(parsed.common), DoctorOptions()};
  if (app.got_subcommand("receive")) return {std::move(parsed.common), std::move(parsed.receive)};
  if (parsed.text.text == "-") parsed.text.text.reset();
  return {std::move(parsed.common), std::move(parsed.text)};
}

}  // namespace

std::variant<Options, ExitCode> parseOptions(int argumentCount, const char* const* arguments) {
  CLI::App app("Hands files, folders and texts to another machine on the local network.", "vesko");
  Parsed parsed;
  describe(app, parsed);
  try {
    app.parse(argumentsOf(argumentCount, arguments));
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? ExitCode::success : ExitCode::usage;
  }
  return optionsOf(app, std::move(parsed));
}

}  // namespace vesko
