#include "hosts/cli/DoctorCommand.h"

#include <algorithm>

#include "VeskoKit/Log.h"
#include "hosts/cli/DoctorProbe.h"
#include "hosts/common/doctor/Firewall.h"

namespace vesko {
namespace {

using Level = Finding::Level;

Console::Colour colourOf(Level level) {
  if (level == Level::problem) return Console::Colour::red;
  if (level == Level::warning) return Console::Colour::yellow;
  return level == Level::good ? Console::Colour::green : Console::Colour::none;
}

/// Prints findings for people or as JSON, and remembers whether one of them was a problem.
class FindingPrinter {
 public:
  explicit FindingPrinter(Program& program) : program_(program) {}

  void print(const std::string& heading, std::vector<Finding> findings) {
    const auto& options = program_.options;
    hasProblem_ = hasProblem_ ||
                  std::ranges::any_of(findings, [](const Finding& finding) { return finding.level == Level::problem; });
    if (options.quiet) std::erase_if(findings, [](const Finding& finding) { return finding.level < Level::warning; });
    if (!options.json && !findings.empty()) program_.console.print(heading + '\n');
    for (const auto& finding : findings) program_.console.print(options.json ? jsonLine(finding) + '\n' : row(finding));
  }

  [[nodiscard]] bool hasProblem() const noexcept { return hasProblem_; }

 private:
  [[nodiscard]] std::string row(const Finding& finding) const {
    constexpr std::size_t width = 9;  // of the longest level and two spaces
    const std::string_view mark = nameOf(finding.level);
    const std::string text = finding.advice.empty() ? finding.text : finding.text + "; " + finding.advice;
    return "  " + program_.console.inColour(colourOf(finding.level), mark) + std::string(width - mark.size(), ' ') +
           Log::escaped(text) + '\n';
  }

  Program& program_;
  bool hasProblem_ = false;
};

}  // namespace

ExitCode runDoctor(Program& program) {
  FindingPrinter printer(program);
  const auto interfaces = NetworkInterfaces::all();
  printer.print("interfaces", findingsAboutInterfaces(interfaces, NetworkInterfaces::kindOf));
  const auto ports = servicePorts(program.options.port);
  std::vector<Finding> portFindings;
  portFindings.reserve(ports.size());
  for (const auto& port : ports) {
    portFindings.push_back(findingAboutPort(port, PortHolders::of(port.protocol, port.number)));
  }
  printer.print("ports", std::move(portFindings));
  // Before the firewalls: an answer shows that they let the UDP port through.
  const HelloCheck hello = checkHello(program);
  printer.print("hello", findingsAboutHello(hello));
  printer.print("firewall", findingsAboutFirewalls(firewallsOf(), program.options.port, !hello.answers.empty()));
  return printer.hasProblem() ? ExitCode::unexpected : ExitCode::success;
}

}  // namespace vesko
