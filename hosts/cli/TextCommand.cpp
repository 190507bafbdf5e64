#include "hosts/cli/TextCommand.h"

#include <array>
#include <cerrno>
#include <cstdio>

#include "hosts/cli/PeerChoice.h"
#include "hosts/cli/SendAndFollow.h"
#include "hosts/common/text/HumanText.h"

namespace vesko {
namespace {

/// Reads standard input, up to a little more than can be sent, so that endless input ends too; none on an error.
std::optional<std::string> readInput() {
  std::string text;
  std::array<char, 65536> buffer;
  while (text.size() <= VeskoText::maximumLength) {
    const std::size_t length = std::fread(buffer.data(), 1, buffer.size(), stdin);
    if (length == 0) break;
    text.append(buffer.data(), length);
  }
  if (std::ferror(stdin) != 0) return std::nullopt;
  return text;
}

std::string complaintAbout(VeskoFailureReason reason) {
  if (reason == VeskoFailureReason::invalidText) return "the text is not valid UTF-8; send it as a file";
  return "the text is longer than " + sizeText(VeskoText::maximumLength) + "; send it as a file";
}

}  // namespace

ExitCode runText(Program& program, const TextOptions& options) {
  const PeerOrCode peer = findPeer(program, options.peer, options.wait);
  if (const auto* code = std::get_if<ExitCode>(&peer)) return *code;
  if (!options.text && !program.options.quiet && Console::inputIsTerminal()) {
    program.console.note("type the text, then press Ctrl-D on an empty line");
  }
  const auto text = options.text ? options.text : readInput();
  if (!text) {
    program.console.complain("cannot read standard input: " + std::generic_category().message(errno));
    return ExitCode::unexpected;
  }
  if (const auto reason = Session::reasonAgainstText(*text); reason != VeskoFailureReason::none) {
    program.console.complain(complaintAbout(reason));
    return ExitCode::usage;
  }
  return sendAndFollow(program, std::get<PeerView>(peer), [&](Session& session) { return session.prepareText(*text); });
}

}  // namespace vesko
