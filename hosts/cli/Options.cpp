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
    "  4 cannot connect    5 transfer failed    6 some skipped     7 cannot listen\n"
    "  130 interrupted\n";

/// The variables that the parser writes to: the options of all commands, of which one is given.
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
                 "Use ports N and N + 1; N is also the port of a PEER without one (default 4644)")
      ->check(CLI::Range(1, 65535).description(""))
      ->type_name("N");
  app.add_flag("--json", common.json, "Print events as JSON, one object per line");
  app.add_flag("--quiet", common.quiet, "Print only results and errors, no progress and no notices");
  app.add_option("--log", common.logFile, "Append a log to FILE")->type_name("FILE");
  app.set_version_flag("--version", "vesko " VESKO_VERSION);
}

void addWait(CLI::App& command, double& wait) {
  constexpr double longest = 3600;
  command.add_option("--wait", wait, "Wait this long for other machines to answer (default 1)")
      ->check(CLI::Range(0.0, longest).description(""))
      ->type_name("SECONDS");
}

void addPeer(CLI::App& command, std::string& peer, double& wait) {
  command.add_option("--to", peer, "The recipient: any part of its name, ADDRESS or ADDRESS:PORT")->type_name("PEER");
  addWait(command, wait);
}

CLI::App& addCommand(CLI::App& app, const char* name, const char* description, CommonOptions& common) {
  CLI::App& command = *app.add_subcommand(name, description);
  addCommon(command, common);
  return command;
}

/// The error message for a value of --allow; "" for a valid one.
std::string checkNetwork(const std::string& text) {
  return parseNetwork(text) ? "" : "\"" + text + "\" is neither an IPv4 address nor a network such as 192.168.1.0/24";
}

/// Replaces a value of --max-size by the plain number. Returns the error message; "" for a valid value.
std::string readSize(std::string& text) {
  std::string complaint = "\"" + text + "\" is not a number of bytes such as 1500, 500M or 2Gi";
  // The parser would read "-1" as the largest number of the type.
  if (text.empty() || text.front() < '0' || text.front() > '9') return complaint;
  try {
    return CLI::AsSizeValue(true)(text).empty() ? "" : complaint;
  } catch (const CLI::ValidationError&) {
    return complaint;
  }
}

/// The text for an invalid command line, in the form of all errors of the program.
std::string errorMessage(const CLI::App* /*app*/, const CLI::Error& error) {
  return std::string("vesko: ") + error.what() + "; vesko --help lists the commands and options\n";
}

void describe(CLI::App& app, Parsed& parsed) {
  app.require_subcommand(1);
  app.failure_message(errorMessage);
  app.footer(exitCodes);
  addCommon(app, parsed.common);

  CLI::App& send = addCommand(app, "send", "Send files and folders", parsed.common);
  addPeer(send, parsed.send.peer, parsed.wait);
  send.add_option("PATH", parsed.send.paths, "Files and folders to send")->required()->type_name("");

  CLI::App& text = addCommand(app, "text", "Send a text", parsed.common);
  addPeer(text, parsed.text.peer, parsed.wait);
  text.add_option("TEXT", parsed.text.text, "The text; \"-\" or nothing reads standard input")->type_name("");

  CLI::App& receive = addCommand(app, "receive", "Receive files, folders and texts until interrupted", parsed.common);
  receive
      .add_option("--dir", parsed.receive.directory, "The folder for received items (default: your downloads folder)")
      ->type_name("DIR");
  receive.add_flag("--once", parsed.receive.once, "Exit after the first transfer");
  receive.add_flag("--keep-partial", parsed.receive.keepPartial, "Keep the complete files of a transfer that fails");
  receive
      .add_option("--allow", parsed.allowed,
                  "Accept transfers only from this address or network, such as 192.168.1.0/24; may be repeated")
      ->allow_extra_args(false)
      ->check(checkNetwork)
      ->type_name("ADDRESS|NETWORK");
  receive.add_option("--max-size", parsed.receive.maximumSize, "Refuse larger transfers; 500M and 2Gi are valid too")
      ->transform(CLI::Validator(readSize, ""))
      ->type_name("BYTES");
  receive.add_flag("--ask", parsed.receive.ask, "Ask at the terminal about each transfer before anything is stored");

  CLI::App& peers = addCommand(app, "peers", "List the other machines", parsed.common);
  addWait(peers, parsed.wait);
  peers.add_flag("--watch", parsed.peers.watch, "Print which machines appear and leave, until interrupted");

  peers.add_option("--save-avatars", parsed.peers.avatarFolder, "Save the pictures of their users as DIR/ADDRESS.png")
      ->excludes("--watch")
      ->type_name("DIR");

  addCommand(app, "doctor", "Check why no other machine is found", parsed.common);
}

/// The parser reads "[a,b]" as a list and "{}" as an empty value. With "./" in front they stay paths.
std::string protectedPath(const std::string& argument) {
  const bool looksLikeList = argument.starts_with('[') && argument.ends_with(']');
  return looksLikeList || argument == "{}" ? "./" + argument : argument;
}

/// The arguments in reverse order, as the parser expects a vector.
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
  CLI::App app("Sends files, folders and texts to another machine on the local network.", "vesko");
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
