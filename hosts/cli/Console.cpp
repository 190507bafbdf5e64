#include "hosts/cli/Console.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "Platform/user/Terminal.h"
#include "VeskoKit/Log.h"
#include "hosts/common/text/HumanText.h"

namespace vesko {
namespace {

/// NO_COLOR (no-color.org) with any value except the empty one switches colours off.
bool colourIsWelcome() {
  const char* noColour = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  const bool isForbidden = noColour != nullptr && *noColour != '\0';
  return !isForbidden && terminal != nullptr && std::string_view(terminal) != "dumb";
}

void writeError(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stderr); }

}  // namespace

Console::Console()
    : outputIsTerminal_(Terminal::isTerminal(Terminal::Stream::output)),
      errorIsTerminal_(Terminal::isTerminal(Terminal::Stream::error)),
      hasColour_(errorIsTerminal_ && colourIsWelcome()) {}

bool Console::inputIsTerminal() noexcept { return Terminal::isTerminal(Terminal::Stream::input); }

std::size_t Console::columns() const noexcept {
  constexpr std::size_t usual = 80;
  // The last column stays free: some terminals wrap the line when it is written.
  return Terminal::columns(Terminal::Stream::error).value_or(usual) - 1;
}

void Console::print(std::string_view text) {
  clearBar();
  const bool isWritten = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  if (!isWritten) outputFailed_ = true;
  showQuestion();
}

std::string Console::inColour(Colour colour, std::string_view text) const {
  static constexpr std::array codes = {"", "\033[1;31m", "\033[33m", "\033[32m"};
  if (colour == Colour::none || !outputIsTerminal_ || !colourIsWelcome()) return std::string(text);
  return codes.at(static_cast<std::size_t>(colour)) + std::string(text) + "\033[0m";
}

void Console::note(std::string_view line) { write(Log::escaped(line) + '\n'); }

void Console::write(const std::string& text) {
  clearBar();
  writeError(text);
  showQuestion();
}

void Console::keepAsking(std::string_view question) {
  clearBar();
  question_ = question;
  showQuestion();
}

void Console::showQuestion() {
  if (question_.empty()) return;
  writeError(question_);
  barColumns_ = columnsOf(question_);
}

void Console::stopAsking(bool isLineEnded) {
  if (!question_.empty() && !isLineEnded) writeError("\n");
  question_.clear();
  barColumns_ = 0;
}

void Console::ask(std::string_view question) {
  clearBar();
  writeError(Log::escaped(question));
}

void Console::complain(std::string_view line) {
  const std::string name = hasColour_ ? "\033[1;31mvesko:\033[0m " : "vesko: ";
  write(name + Log::escaped(line) + '\n');
}

void Console::showBar(std::string_view line) {
  if (!question_.empty()) return;
  const std::size_t width = columnsOf(line);
  const std::size_t leftover = barColumns_ > width ? barColumns_ - width : 0;
  writeError('\r' + std::string(line) + std::string(leftover, ' ') + '\r');
  barColumns_ = width;
}

void Console::clearBar() {
  if (barColumns_ == 0) return;
  writeError('\r' + std::string(barColumns_, ' ') + '\r');
  barColumns_ = 0;
}

}  // namespace vesko
