#include <cstdint>
#include <exception>
#include <memory>
#include <system_error>
#include <thread>

#include "Platform/process/DescriptorLimit.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/MainQueue.h"
#include "VeskoKit/Log.h"
#include "hosts/cli/DoctorCommand.h"
#include "hosts/cli/JsonReporter.h"
#include "hosts/cli/PeersCommand.h"
#include "hosts/cli/ReceiveCommand.h"
#include "hosts/cli/SendCommand.h"
#include "hosts/cli/TerminalReporter.h"
#include "hosts/cli/TextCommand.h"

namespace vesko {
namespace {

/// Wanted limit of open descriptors: more than all transfers at once can use, and no burden for a system.
constexpr std::uint64_t wantedDescriptors = 65'536;

bool openLog(const std::string& file, Console& console) {
  try {
    Log::setSink(file.empty() ? nullptr : Log::fileSink(file));
    return true;
  } catch (const std::system_error& error) {
    console.complain("cannot write the log \"" + file + "\": " + error.code().message());
    return false;
  }
}

std::unique_ptr<Reporter> makeReporter(const CommonOptions& options, Console& console) {
  if (options.json) return std::make_unique<JsonReporter>(console, options.quiet);
  return std::make_unique<TerminalReporter>(console, options.quiet, Clock::system());
}

ExitCode run(const Options& options, Console& console, Interrupts& interrupts) {
  if (!openLog(options.common.logFile, console)) return ExitCode::usage;
  const auto reporter = makeReporter(options.common, console);
  Program program{options.common, console, *reporter, interrupts};
  const ExitCode code =
      std::visit(Overloaded{[&](const SendOptions& send) { return runSend(program, send); },
                            [&](const TextOptions& text) { return runText(program, text); },
                            [&](const ReceiveOptions& receive) { return runReceive(program, receive); },
                            [&](const PeersOptions& peers) { return runPeers(program, peers); },
                            [&](const DoctorOptions&) { return runDoctor(program); }},
                 options.command);
  if (!console.outputFailed()) return code;
  console.complain("cannot write to standard output");
  return code == ExitCode::success ? ExitCode::unexpected : code;
}

ExitCode runGuarded(const Options& options, Interrupts& interrupts) {
  Console console;
  try {
    return run(options, console, interrupts);
  } catch (const std::exception& error) {
    console.complain(error.what());
    return ExitCode::unexpected;
  }
}

}  // namespace
}  // namespace vesko

int main(int argumentCount, char** arguments) {
  vesko::DescriptorLimit::raise(vesko::wantedDescriptors);
  vesko::Interrupts interrupts;
  // The library reports pictures on its main queue. The main thread waits for events, so another thread runs that
  // queue.
  std::thread([] { vesko::MainQueue::shared()->run(); }).detach();
  const auto parsed = vesko::parseOptions(argumentCount, arguments);
  const auto* options = std::get_if<vesko::Options>(&parsed);
  const auto code = options != nullptr ? vesko::runGuarded(*options, interrupts) : std::get<vesko::ExitCode>(parsed);
  return static_cast<int>(code);
}
