#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vesko {

/// Standard output and standard error of the program: results go to the one, everything else to the other. A bar at the
/// bottom of a terminal makes way for whatever is printed. Used on one thread.
class Console {
 public:
  Console();
  ~Console() { clearBar(); }
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// True when somebody would have to type what standard input holds.
  [[nodiscard]] static bool inputIsTerminal() noexcept;

  /// True when standard output is a terminal, which control characters could drive.
  [[nodiscard]] bool outputIsTerminal() const noexcept { return outputIsTerminal_; }

  /// True when a bar can be shown: standard error is a terminal.
  [[nodiscard]] bool showsBars() const noexcept { return errorIsTerminal_; }

  /// Columns a bar may have.
  [[nodiscard]] std::size_t columns() const noexcept;

  /// Writes a result as it is, at once.
  void print(std::string_view text);

  enum class Colour : std::uint8_t { none, red, yellow, green };

  /// `text` for standard output, in this colour where the terminal and the user take it.
  [[nodiscard]] std::string inColour(Colour colour, std::string_view text) const;

  /// True when a result could not be written.
  [[nodiscard]] bool outputFailed() const noexcept { return outputFailed_; }

  /// Writes one line to standard error, control characters escaped.
  void note(std::string_view line);

  /// Writes a question to standard error; the answer is typed behind it.
  void ask(std::string_view question);

  /// Writes a question that stays the last line, below whatever is printed, until `stopAsking`; meanwhile no bar is
  /// shown.
  void keepAsking(std::string_view question);

  /// The question has been settled: by a line typed behind it, which has ended its line, or not.
  void stopAsking(bool isLineEnded);

  /// The same as `note` for what went wrong: named by the program, in colour where the terminal and the user take it.
  void complain(std::string_view line);

  /// Shows `line`, which holds no control characters, in place of the bar before it.
  void showBar(std::string_view line);
  void clearBar();

 private:
  void write(const std::string& text);
  void showQuestion();

  const bool outputIsTerminal_;
  const bool errorIsTerminal_;
  const bool hasColour_;
  bool outputFailed_ = false;
  std::size_t barColumns_ = 0;  // of the last line, bar or question
  std::string question_;
};

}  // namespace vesko
