#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vesko {

/// Standard output and standard error of the program: results go to the first, everything else to the second. The
/// progress bar or the open question is always the last line of the terminal: it is erased before other output and, for
/// a question, written again after it. Used on one thread.
class Console {
 public:
  Console();
  ~Console() { clearBar(); }
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// True when standard input is a terminal: a person would have to type.
  [[nodiscard]] static bool inputIsTerminal() noexcept;

  /// True when standard output is a terminal: control characters in names must be escaped.
  [[nodiscard]] bool outputIsTerminal() const noexcept { return outputIsTerminal_; }

  /// True when a bar can be shown: standard error is a terminal.
  [[nodiscard]] bool showsBars() const noexcept { return errorIsTerminal_; }

  /// Most columns of a bar.
  [[nodiscard]] std::size_t columns() const noexcept;

  /// Writes a result to standard output, unchanged, and flushes it.
  void print(std::string_view text);

  enum class Colour : std::uint8_t { none, red, yellow, green };

  /// `text` for standard output, in this colour where terminal and user allow colours.
  [[nodiscard]] std::string inColour(Colour colour, std::string_view text) const;

  /// True after a `print` that failed.
  [[nodiscard]] bool outputFailed() const noexcept { return outputFailed_; }

  /// Writes a line to standard error, with control characters escaped.
  void note(std::string_view line);

  /// Writes a question to standard error; the user types the answer behind it.
  void ask(std::string_view question);

  /// Writes a question that stays the last line, below all further output, until `stopAsking`. No bar is shown
  /// meanwhile. Control characters are not escaped.
  void keepAsking(std::string_view question);

  /// Ends the question. `isLineEnded`: the user has typed a line, so the cursor is on the next one already.
  void stopAsking(bool isLineEnded);

  /// Writes an error message, `vesko: LINE`, to standard error, with control characters escaped.
  void complain(std::string_view line);

  /// Replaces the bar by `line`, which must not contain control characters.
  void showBar(std::string_view line);

  /// Erases the bar.
  void clearBar();

 private:
  void write(const std::string& text);
  void showQuestion();

  const bool outputIsTerminal_;
  const bool errorIsTerminal_;
  const bool hasColour_;
  bool outputFailed_ = false;
  std::size_t barColumns_ = 0;  // width of the bar or question on the last line
  std::string question_;
};

}  // namespace vesko
