#include "VeskoKit/Log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <set>
#include <sstream>
#include <thread>

#include "Platform/files/FileDescriptor.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EventList.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

using namespace std::string_literals;

// Keeps the lines, and tells when they were flushed.
class RecordingSink : public LogSink, public EventList {
 public:
  void write(std::string_view line) override { add(std::string(line)); }
  void flush() override { flushes.add("after " + std::to_string(all().size())); }
  EventList flushes;
};

// Far more than a pipe and a sink hold together.
constexpr int many = 3000;

void writeManyLines() {
  const std::string text(999, 'x');
  for (int line = 0; line < many; ++line) Log::line(text);
}

// All that comes up to `end`, or to the end of the stream.
std::string readUpTo(const FileDescriptor& source, std::string_view end) {
  constexpr int patience = 10'000;
  std::string text;
  std::array<char, 65536> buffer;
  for (pollfd waited{source.get(), POLLIN, 0}; !text.ends_with(end) && ::poll(&waited, 1, patience) == 1;) {
    const auto count = ::read(source.get(), buffer.data(), buffer.size());
    if (count <= 0) break;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return text;
}

class LogTest : public testing::Test {
 protected:
  ~LogTest() override { Log::setSink(nullptr); }

  const TemporaryFolder folder_;
  const std::string path_ = folder_.path("log");
  const std::shared_ptr<RecordingSink> recording_ = std::make_shared<RecordingSink>();
};

TEST_F(LogTest, LineJoinsItems) {
  Log::setSink(recording_);
  EXPECT_TRUE(Log::isEnabled());
  Log::line("Finished transfer");
  Log::line("sending chunk", 5, std::uint64_t{18446744073709551615U}, std::string("A/b.txt"));
  Log::line("timeout", 10.0, 0.25, -1e-7, 1e21, "");
  Log::line("Incoming path: ", std::string_view("two\nlines\0"s));
  EXPECT_EQ(recording_->all(),
            (std::vector<std::string>{"Finished transfer\n", "sending chunk 5 18446744073709551615 A/b.txt\n",
                                      "timeout 10.0 0.25 -0.0000001 1000000000000000000000.0 \n",
                                      "Incoming path:  two\\u{a}lines\\u{0}\n"}));
  EXPECT_TRUE(recording_->flushes.waitFor("after 4")) << "what waits is flushed without another line";
  Log::line("after a flush");
  EXPECT_TRUE(recording_->flushes.waitFor("after 5"));
}

TEST_F(LogTest, EscapesWhatCouldDriveATerminal) {
  const std::pair<std::string, std::string> cases[] = {
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
}

TEST_F(LogTest, FileSinkAppendsWholeLines) {
  folder_.write("log", "before\n");
  Log::setSink(Log::fileSink(path_));
  Log::line("short");
  const std::string longer(70'000, 'x');
  Log::line(longer);
  EXPECT_EQ(folder_.read("log"), "before\nshort\n" + longer + "\n") << "64 KiB did not go out at once";
  Log::line("last");
  Log::setSink(nullptr);
  EXPECT_EQ(folder_.read("log"), "before\nshort\n" + longer + "\nlast\n");
  EXPECT_FALSE(Log::isEnabled());
  EXPECT_THROW(static_cast<void>(Log::fileSink(path_ + "/below a file")), std::system_error);
}

TEST_F(LogTest, NobodyWaitsForTheReaderOfAPipe) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  Log::setSink(Log::fileSink(path_));
  Log::line("nobody reads yet");
  const FileDescriptor reader(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  Log::line("now");
  EXPECT_EQ(readUpTo(reader, "now\n"), "nobody reads yet\nnow\n");
  writeManyLines();
  ::fcntl(reader.get(), F_SETPIPE_SZ, 1024 * 1024);          // so that little has to be handed on later
  std::istringstream lines(readUpTo(reader, "dropped)\n"));  // without another line
  int count = 0;
  std::string line;
  while (std::getline(lines, line) && line == std::string(999, 'x')) ++count;
  EXPECT_EQ(line, "(" + std::to_string(many - count) + " lines dropped)");
}

TEST_F(LogTest, NobodyWaitsForTheReaderOfStandardOutput) {
  const auto logTo = [](int output, const auto& write) {
    ASSERT_EQ(::dup2(output, STDOUT_FILENO), STDOUT_FILENO);
    Log::setSink(Log::standardOutputSink());
    write();
    Log::setSink(nullptr);
  };
  for (const bool isSocket : {false, true}) {
    EXPECT_TRUE(passesInChild([&] {
      std::array<int, 2> ends{};
      const int made = isSocket ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) : ::pipe2(ends.data(), O_CLOEXEC);
      ASSERT_EQ(made, 0);
      logTo(ends[1], writeManyLines);
      EXPECT_EQ(::fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0) << "other programs write there too";
      ::close(ends[0]);
      logTo(ends[1], [] { Log::line("the reader has gone, which is no reason to end"); });
    })) << isSocket;
  }
  EXPECT_TRUE(passesInChild([&] {
    const FileDescriptor file(::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    logTo(file.get(), writeManyLines);
  }));
  EXPECT_EQ(std::filesystem::file_size(path_), many * 1000U) << "a file loses nothing";
}

TEST_F(LogTest, SinksChangeWhileThreadsWrite) {
  Log::setSink(recording_);
  std::vector<std::jthread> writers;
  for (int writer = 0; writer < 3; ++writer) {
    writers.emplace_back([writer] {
      for (int number = 0; number < 2000; ++number) Log::line(writer, number);
    });
  }
  for (int change = 0; change < 20; ++change) {
    Log::setSink(Log::fileSink(path_));
    Log::setSink(recording_);
  }
  writers.clear();
  Log::setSink(nullptr);
  std::istringstream file(folder_.read("log"));
  for (std::string line; std::getline(file, line);) recording_->add(line + "\n");
  const auto lines = recording_->all();
  EXPECT_EQ(lines.size(), 6000U);
  EXPECT_EQ(std::set(lines.begin(), lines.end()).size(), 6000U);
  EXPECT_EQ(std::ranges::count_if(lines, [](auto& line) { return line.size() < 4 || line.size() > 7; }), 0);
}

}  // namespace
}  // namespace vesko
