#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vesko {

/// Takes the lines of the log. The log calls it from any thread, but never twice at a time; inside a call a sink must
/// neither log nor wait for a thread that does.
class LogSink {
 public:
  virtual ~LogSink() = default;

  /// `line` is one event, ended by a line feed, its control characters escaped.
  virtual void write(std::string_view line) = 0;

  /// Hands on what the sink holds back; called within a tenth of a second after a line. Must not throw. Transfers may
  /// wait for this call and the one before, so neither should wait for somebody to read.
  virtual void flush() {}

  /// True when `flush` could not hand on everything and it is soon worth another try: it is then called again a tenth
  /// of a second later, even if no line comes.
  [[nodiscard]] virtual bool isBehind() const { return false; }
};

/// The log: one line an event, its items joined by one space. It is the process's, as standard output is; without a
/// sink a line costs one load and is never formatted.
namespace Log {

/// Makes `sink` the receiver of all lines from now on, and flushes the one before it, which is not called any more;
/// none switches the log off. Any thread. A new process writes to standard output, and one that ends flushes its sink.
void setSink(std::shared_ptr<LogSink> sink);

/// A sink that gathers lines and hands them to the file at `path` (appended; created if missing) when 64 KiB are
/// waiting or a tenth of a second has passed. Where that is a pipe or terminal, nobody waits for its reader, nor for
/// there to be one: 1 MiB of lines is kept for it, then lines are dropped, and "(N lines dropped)" stands in their
/// place. A file loses lines in the same way only while its disk is full. The end of the sink gives a reader that goes
/// on reading a second for the rest. Throws `std::system_error` when the file cannot be opened.
[[nodiscard]] std::shared_ptr<LogSink> fileSink(const std::string& path);

/// The same, to what is standard output at the time; `stdout` and its buffer are not used.
[[nodiscard]] std::shared_ptr<LogSink> standardOutputSink();

/// True when somebody listens.
[[nodiscard]] bool isEnabled() noexcept;

/// `text` with control characters (C0, C1, DEL), line separators and bidirectional controls written as escapes such as
/// \u{1b}, bytes that are not UTF-8 as \xff, and backslashes left as they are: one event stays one line, and a name
/// cannot drive a terminal.
[[nodiscard]] std::string escaped(std::string_view text);

namespace detail {
void append(std::string& line, std::string_view text);
void append(std::string& line, double number);
void append(std::string& line, std::integral auto number) { line += std::to_string(number); }
void write(std::string_view line, std::uint64_t count);
}  // namespace detail

/// Writes the same line `count` times: texts unquoted and escaped, numbers in decimal, those of floating point with a
/// fraction.
template <class... Items>
requires(sizeof...(Items) > 0) void lines(std::uint64_t count, const Items&... items) {
  if (!isEnabled()) return;
  std::string text;
  text.reserve(128);  // most lines, in one allocation
  ((detail::append(text, items), text += ' '), ...);
  text.back() = '\n';
  detail::write(text, count);
}

/// Writes one line.
template <class... Items>
requires(sizeof...(Items) > 0) void line(const Items&... items) { lines(1, items...); }

}  // namespace Log
}  // namespace vesko
