#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vesko {

/// Receives the lines of the log. The log calls it on any thread, but never twice at the same time. Inside a call a
/// sink must not write to the log, nor wait for a thread that does: that would deadlock.
class LogSink {
 public:
  virtual ~LogSink() = default;

  /// `line` is one event, control characters escaped, with a line feed at the end.
  virtual void write(std::string_view line) = 0;

  /// Passes on what the sink holds back. Called within a tenth of a second after a line. Must not throw. Transfers may
  /// wait for this call and for `write`, so neither should wait for a slow reader.
  virtual void flush() {}

  /// True when `flush` could not pass on everything and should be tried again: it is then called again a tenth of a
  /// second later, even if no line comes.
  [[nodiscard]] virtual bool isBehind() const { return false; }
};

/// The log of the whole process: one line for each event, its items joined by single spaces. It goes to standard output
/// until `setSink` is called. Without a sink, a line is not even formatted. Any thread.
namespace Log {

/// Makes `sink` the receiver of all further lines; none switches the log off. The one before is flushed and not called
/// any more. When the process ends in good order, the sink is flushed.
void setSink(std::shared_ptr<LogSink> sink);

/// A sink that appends lines to the file at `path`, which is created if missing. Throws `std::system_error` when it
/// cannot be opened.
///
/// Lines are gathered and written when 64 KiB are waiting or a tenth of a second has passed. Nobody waits for the
/// reader of a pipe or terminal, nor for a reader to come: up to 1 MiB of lines is kept, further ones are dropped, and
/// "(N lines dropped)" is written in their place. Lines for a regular file are dropped in the same way while its disk
/// is full. The destructor waits up to a second for a reader that goes on reading.
[[nodiscard]] std::shared_ptr<LogSink> fileSink(const std::string& path);

/// The same for standard output, whatever that is at the time of each write. `stdout` and its buffer are not used.
[[nodiscard]] std::shared_ptr<LogSink> standardOutputSink();

/// True when there is a sink; so before the first line, too.
[[nodiscard]] bool isEnabled() noexcept;

/// `text` for one line of a log or terminal: control characters (C0, C1, DEL), line separators and bidirectional
/// controls are written as escapes such as \u{1b}, bytes that are not UTF-8 as \xff. Backslashes stay as they are. So
/// one event stays one line, and a name from the network cannot control a terminal.
[[nodiscard]] std::string escaped(std::string_view text);

namespace detail {
void append(std::string& line, std::string_view text);
void append(std::string& line, double number);
void append(std::string& line, std::integral auto number) { line += std::to_string(number); }
void write(std::string_view line, std::uint64_t count);
}  // namespace detail

/// Writes the same line `count` times. Texts are escaped but not quoted; integers are in decimal, floating-point
/// numbers always with a fraction.
template <class... Items>
requires(sizeof...(Items) > 0) void lines(std::uint64_t count, const Items&... items) {
  if (!isEnabled()) return;
  std::string text;
  text.reserve(128);  // most lines, in one allocation
  ((detail::append(text, items), text += ' '), ...);
  text.back() = '\n';
  detail::write(text, count);
}

/// Writes one line: `Log::line("sending chunk", 10, name)`.
template <class... Items>
requires(sizeof...(Items) > 0) void line(const Items&... items) { lines(1, items...); }

}  // namespace Log
}  // namespace vesko
