#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

/// A program under test, run with what it reads and writes in the test's hands. Waits are ten seconds at most; one that
/// is still running at the end of its owner is killed.
class Process {
 public:
  struct Setup {
    std::vector<std::string> arguments;             ///< the program first
    std::optional<std::string> input = "";          ///< standard input; none: what `type` gives at the terminal
    std::vector<std::string> environment;           ///< "NAME=value", in addition to the test's own
    std::optional<unsigned short> terminalColumns;  ///< standard error, and input if typed, is a terminal that wide
  };

  struct Result {
    std::optional<int> code;
    std::string output;
    std::string errors;
  };

  explicit Process(const Setup& setup);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// True as soon as standard output, or standard error, holds `text`; false when it never comes.
  [[nodiscard]] bool waitForOutput(std::string_view text) { return output_.waitFor(text); }
  [[nodiscard]] bool waitForErrors(std::string_view text) { return errors_.waitFor(text); }

  void type(std::string_view text) const;

  void signal(int number) const;

  /// The exit code; minus a signal's number when one ended it; none when it does not end.
  [[nodiscard]] std::optional<int> wait();

  /// What there is after the end.
  [[nodiscard]] Result result() {
    const auto code = wait();
    return {code, output(), errors()};
  }

  /// What was written so far; all of it after the end.
  [[nodiscard]] std::string output() { return output_.text(); }
  [[nodiscard]] std::string errors() { return errors_.text(); }

 private:
  /// Gathers what comes out of a descriptor.
  class Capture {
   public:
    void start(FileDescriptor descriptor);
    void join() { reader_.join(); }
    [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }
    [[nodiscard]] bool waitFor(std::string_view text);
    [[nodiscard]] std::string text();

   private:
    void run();

    FileDescriptor descriptor_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string text_;
    bool hasEnded_ = false;
    std::jthread reader_;
  };

  int process_ = -1;
  bool isWaitedFor_ = false;
  Capture output_;
  Capture errors_;
};

}  // namespace vesko
