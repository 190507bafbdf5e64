#include "VeskoKit/Log.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "Platform/process/PromptOutput.h"
#include "Platform/text/TextEncoding.h"

namespace vesko::Log {
namespace {

constexpr std::size_t flushSize = 64 * 1024;
constexpr std::chrono::milliseconds flushDelay{100};

// Some ten thousand lines: more than a reader that keeps up ever leaves waiting, and little enough to keep in memory
// for one that does not.
constexpr std::size_t mostWaiting = 1024 * 1024;

// How long the end waits for a reader that still takes bytes; well below the time in which a program should end.
constexpr std::chrono::seconds lastPatience{1};

// Outside of the journal, so that asking never waits for its lock, and valid until the process is gone.
std::atomic<bool> enabled{true};

// Gathers lines and writes them together. It writes whole lines where it can, so that lines stay whole when several
// processes append to one file.
class GatheringSink final : public LogSink {
 public:
  explicit GatheringSink(std::unique_ptr<PromptOutput> output) noexcept : output_(std::move(output)) {}
  GatheringSink(const GatheringSink&) = delete;
  GatheringSink& operator=(const GatheringSink&) = delete;

  // A reader that still takes bytes gets the rest. One that has stopped does not delay the end.
  ~GatheringSink() override {
    const auto end = std::chrono::steady_clock::now() + lastPatience;
    GatheringSink::flush();
    while (!waiting_.empty() && std::chrono::steady_clock::now() < end && output_->waitForRoom(flushDelay)) {
      const auto before = waiting_.size();
      GatheringSink::flush();
      if (waiting_.size() >= before) return;
    }
  }

  void write(std::string_view line) override {
    if (dropped_ == 0 && !hasRoomFor(line)) flush();
    // Once a line is dropped, all are until the reader has caught up, so that there is one gap instead of many.
    if (dropped_ > 0 || !hasRoomFor(line)) {
      ++dropped_;
      return;
    }
    waiting_ += line;
    if (waiting_.size() >= flushAt_) flush();
  }

  void flush() override {
    handOn();
    if (dropped_ == 0 || !waiting_.empty()) return;
    waiting_ = '(' + std::to_string(std::exchange(dropped_, 0)) + " lines dropped)\n";
    handOn();
  }

  // Only where a reader is slow does it help to try again soon. Without a reader, or with a full disk, the next line is
  // soon enough.
  bool isBehind() const override { return error_ == std::errc::operation_would_block; }

 private:
  bool hasRoomFor(std::string_view line) const {
    return waiting_.empty() || waiting_.size() + line.size() <= mostWaiting;
  }

  void handOn() {
    waiting_.erase(0, output_->write(waiting_, error_));
    flushAt_ = waiting_.size() + flushSize;
  }

  const std::unique_ptr<PromptOutput> output_;
  std::string waiting_;
  std::error_code error_;  // of the last write
  std::size_t flushAt_ = flushSize;
  std::uint64_t dropped_ = 0;  // lines dropped since the last one that was kept
};

// The sink of the process, and the thread that flushes it. `mutex_` makes sure that the calls to a sink come one at a
// time. `setting_` makes sure that only one thread changes the sink.
class Journal {
 public:
  void setSink(std::shared_ptr<LogSink> sink) {
    const std::lock_guard setting(setting_);
    stopFlusher();
    const std::lock_guard lock(mutex_);
    if (sink_) sink_->flush();
    sink_.swap(sink);
    hasDefaultSink_ = false;
    lineWaits_ = false;
    stopping_ = false;
    enabled.store(sink_ != nullptr, std::memory_order_relaxed);
  }

  void write(std::string_view line, std::uint64_t count) {
    const std::lock_guard lock(mutex_);
    if (std::exchange(hasDefaultSink_, false)) sink_ = standardOutputSink();
    if (!sink_) return;
    for (std::uint64_t i = 0; i < count; ++i) sink_->write(line);
    if (!std::exchange(lineWaits_, true)) wakeFlusher();
  }

 private:
  void wakeFlusher() {
    if (stopping_) return;
    if (flusher_.joinable()) return wake_.notify_one();
    try {
      flusher_ = std::thread([this] { flushLines(); });
    } catch (const std::system_error&) {
      // No thread to be had: this line is not held back, and the next one tries again.
      sink_->flush();
      lineWaits_ = false;
    }
  }

  void flushLines() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
      wake_.wait(lock, [this] { return lineWaits_ || stopping_; });
      wake_.wait_for(lock, flushDelay, [this] { return stopping_; });
      sink_->flush();
      lineWaits_ = sink_->isBehind();
    }
  }

  // Without the lock during the join: the thread needs it to end.
  void stopFlusher() {
    std::thread flusher;
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
      flusher.swap(flusher_);
    }
    wake_.notify_one();
    if (flusher.joinable()) flusher.join();
  }

  std::mutex setting_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::shared_ptr<LogSink> sink_;
  bool hasDefaultSink_ = true;  // made with the first line, so not at all where another is set before
  bool lineWaits_ = false;
  bool stopping_ = false;
  std::thread flusher_;
};

// Never destroyed: other threads may write lines while the process ends. The exit handler flushes what waits.
Journal& journal() {
  static Journal* const shared = new Journal;
  static const struct AtExit {
    ~AtExit() { shared->setSink(nullptr); }
  } atExit;
  return *shared;
}

bool isPlain(char byte) noexcept { return byte >= 0x20 && byte < 0x7F; }

// True for characters that end the line, control a terminal, or change the order in which the text around them is
// shown.
bool mustBeEscaped(char32_t character) noexcept {
  constexpr std::pair<char32_t, char32_t> ranges[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0x61C, 0x61C},
                                                      {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [character](auto range) { return character >= range.first && character <= range.second; });
}

void appendHex(std::string& line, std::uint32_t number) {
  std::array<char, 8> digits;
  const auto end = std::to_chars(digits.begin(), digits.end(), number, 16).ptr;
  line.append(digits.begin(), end);
}

// Appends the first character of `text`, escaped if necessary, and returns how many bytes of `text` it took.
std::size_t appendFirstCharacter(std::string& line, std::string_view text) {
  const auto [codePoint, length] = firstUtf8Character(text);
  if (length == 0) {
    line += "\\x";
    appendHex(line, static_cast<std::uint8_t>(text.front()));
    return 1;
  }
  if (mustBeEscaped(codePoint)) {
    line += "\\u{";
    appendHex(line, codePoint);
    line += '}';
  } else {
    line += text.substr(0, length);
  }
  return length;
}

}  // namespace

void setSink(std::shared_ptr<LogSink> sink) { journal().setSink(std::move(sink)); }

std::shared_ptr<LogSink> fileSink(const std::string& path) {
  std::error_code error;
  auto output = PromptOutput::atPath(path, error);
  if (error) throw std::system_error(error, path);
  return std::make_shared<GatheringSink>(std::move(output));
}

std::shared_ptr<LogSink> standardOutputSink() { return std::make_shared<GatheringSink>(PromptOutput::standard()); }

bool isEnabled() noexcept { return enabled.load(std::memory_order_relaxed); }

std::string escaped(std::string_view text) {
  std::string line;
  detail::append(line, text);
  return line;
}

void detail::append(std::string& line, std::string_view text) {
  while (!text.empty()) {
    const auto plain = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPlain) - text.begin());
    line += text.substr(0, plain);
    text.remove_prefix(plain);
    if (!text.empty()) text.remove_prefix(appendFirstCharacter(line, text));
  }
}

void detail::append(std::string& line, double number) {
  std::array<char, 400> digits;  // the largest double has 309 digits, the smallest some 340 after the point
  const auto end = std::to_chars(digits.begin(), digits.end(), number, std::chars_format::fixed).ptr;
  const std::string_view written(digits.begin(), static_cast<std::size_t>(end - digits.begin()));
  line += written;
  if (written.find_first_not_of("-0123456789") == std::string_view::npos) line += ".0";
}

void detail::write(std::string_view line, std::uint64_t count) { journal().write(line, count); }

}  // namespace vesko::Log
