#include "VeskoKit/Log.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace vesko {
namespace {

using namespace std::string_literals;

// Keeps the lines and counts the flushes.
class RecordingSink : public LogSink {
 public:
  void write(std::string_view line) override {
    const std::lock_guard lock(mutex_);
    text_ += line;
  }

  void flush() override {
    const std::lock_guard lock(mutex_);
    flushedSize_ = text_.size();
    flushed_.notify_all();
  }

  [[nodiscard]] std::string text() {
    const std::lock_guard lock(mutex_);
    return text_;
  }

  // False after ten seconds.
  [[nodiscard]] bool waitUntilFlushed(std::size_t size) {
    std::unique_lock lock(mutex_);
    return flushed_.wait_for(lock, std::chrono::seconds(10), [&] { return flushedSize_ >= size; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable flushed_;
  std::string text_;
  std::size_t flushedSize_ = 0;
};

class LogTest : public testing::Test {
 protected:
  LogTest() { std::filesystem::remove(path_); }
  ~LogTest() override {
    Log::setSink(nullptr);
    std::filesystem::remove(path_);
  }

  [[nodiscard]] std::string fileText() const {
    std::ostringstream text;
    text << std::ifstream(path_).rdbuf();
    return text.str();
  }

  const std::string path_ = testing::TempDir() + "vesko-log-" + std::to_string(std::random_device()());
  const std::shared_ptr<RecordingSink> recording_ = std::make_shared<RecordingSink>();
};

TEST_F(LogTest, LineJoinsItems) {
  Log::setSink(recording_);
  EXPECT_TRUE(Log::isEnabled());
  Log::line("Finished transfer");
  Log::line("sending chunk", 5, std::uint64_t{18446744073709551615U}, std::string("A/b.txt"));
  Log::line("timeout", 10.0, 0.25, -1e-7, 1e21, "");
  Log::line("Incoming path: ", std::string_view("two\nlines\0"s));
  EXPECT_EQ(recording_->text(),
            "Finished transfer\n"
            "sending chunk 5 18446744073709551615 A/b.txt\n"
            "timeout 10.0 0.25 -0.0000001 1000000000000000000000.0 \n"
            "Incoming path:  two\\u{a}lines\\u{0}\n");
}

TEST_F(LogTest, EscapesWhatCouldDriveATerminal) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"plain \\u{41} ~", "plain \\u{41} ~"},
      {"\x1b[2J\r\t\x7f", "\\u{1b}[2J\\u{d}\\u{9}\\u{7f}"},
      {"\u0080\u009b\u009f\u00a0\u00e9", "\\u{80}\\u{9b}\\u{9f}\u00a0\u00e9"},
      {"\u061c\u200d\u200e\u200f\u2010", "\\u{61c}\u200d\\u{200e}\\u{200f}\u2010"},
      {"\u2027\u2028\u2029\u202a\u202e\u202f", "\u2027\\u{2028}\\u{2029}\\u{202a}\\u{202e}\u202f"},
      {"\u2065\u2066\u2069\u206a\U0001f600", "\u2065\\u{2066}\\u{2069}\u206a\U0001f600"},
      {"a\x9b\xff\xe2\x80", "a\\x9b\\xff\\xe2\\x80"},
      {"\xc0\x8a\xed\xa0\x80", "\\xc0\\x8a\\xed\\xa0\\x80"},
  };
  for (const auto& [text, escaped] : cases) EXPECT_EQ(Log::escaped(text), escaped);
  std::string hostile, expected;
  for (int count = 0; count < 4096; ++count) hostile += '\x80', expected += "\\x80";
  EXPECT_EQ(Log::escaped(hostile), expected);
}

TEST_F(LogTest, FlushesWhatWaitsWithoutAnotherLine) {
  Log::setSink(recording_);
  for (const std::string line : {"first", "after a flush"}) {
    Log::line(line);
    EXPECT_TRUE(recording_->waitUntilFlushed(recording_->text().size()));
  }
}

TEST_F(LogTest, FileSinkAppendsWholeLines) {
  std::ofstream(path_) << "before\n";
  Log::setSink(Log::fileSink(path_));
  Log::line("short");
  const std::string longer(70'000, 'x');
  Log::line(longer);
  EXPECT_EQ(fileText(), "before\nshort\n" + longer + "\n") << "64 KiB did not go out at once";
  Log::line("last");
  Log::setSink(nullptr);
  EXPECT_EQ(fileText(), "before\nshort\n" + longer + "\nlast\n");
  EXPECT_FALSE(Log::isEnabled());
  Log::line("dropped");
  EXPECT_EQ(std::filesystem::file_size(path_), longer.size() + 19);
  EXPECT_THROW(static_cast<void>(Log::fileSink(path_ + "/below a file")), std::system_error);
}

TEST_F(LogTest, SinksChangeWhileThreadsWrite) {
  constexpr int linesPerThread = 2000;
  Log::setSink(recording_);
  std::vector<std::thread> writers;
  for (const char* name : {"one", "two", "three"}) {
    writers.emplace_back([name] {
      for (int number = 0; number < linesPerThread; ++number) Log::line(name, number);
    });
  }
  for (int change = 0; change < 20; ++change) {
    Log::setSink(Log::fileSink(path_));
    Log::setSink(recording_);
  }
  for (auto& writer : writers) writer.join();
  Log::setSink(nullptr);
  std::istringstream lines(recording_->text() + fileText());
  int count = 0;
  for (std::string name; lines >> name; ++count) {
    int number = -1;
    lines >> number;
    ASSERT_TRUE((name == "one" || name == "two" || name == "three") && number >= 0) << name << number;
  }
  EXPECT_EQ(count, 3 * linesPerThread);
}

}  // namespace
}  // namespace vesko
