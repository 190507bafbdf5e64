#include "tests/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

namespace vesko {
namespace {

constexpr std::chrono::seconds patience{10};

using Ends = std::pair<FileDescriptor, FileDescriptor>;  // ours, theirs

int checked(int result) {
  if (result < 0) throw std::system_error(errno, std::generic_category());
  return result;
}

Ends makePipe() {
  std::array<int, 2> ends{};
  checked(::pipe2(ends.data(), O_CLOEXEC));
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

Ends makeTerminal(unsigned short columns) {
  const winsize size{25, columns, 0, 0};
  std::array<int, 2> ends{};
  checked(::openpty(&ends[0], &ends[1], nullptr, nullptr, &size));
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// A file in memory, so that no amount of input has to wait for its reader.
FileDescriptor fileHolding(const std::string& bytes) {
  FileDescriptor file(checked(::memfd_create("input", MFD_CLOEXEC)));
  checked(static_cast<int>(::write(file.get(), bytes.data(), bytes.size())));
  ::lseek(file.get(), 0, SEEK_SET);
  return file;
}

/// Starts a program with these descriptors as its standard ones.
int spawn(const Process::Setup& setup, const std::array<int, 3>& descriptors) {
  std::vector<std::string> words{"/usr/bin/env"};
  words.insert(words.end(), setup.environment.begin(), setup.environment.end());
  words.insert(words.end(), setup.arguments.begin(), setup.arguments.end());
  std::vector<char*> pointers;
  for (auto& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  for (int i = 0; i < 3; ++i) ::posix_spawn_file_actions_adddup2(&actions, descriptors.at(static_cast<size_t>(i)), i);
  pid_t process = -1;
  const int failure = ::posix_spawn(&process, pointers.front(), &actions, nullptr, pointers.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::system_error(failure, std::generic_category());
  return process;
}

}  // namespace

Process::Process(const Setup& setup) {
  auto [output, outputEnd] = makePipe();
  auto [errors, errorsEnd] = setup.terminalColumns ? makeTerminal(*setup.terminalColumns) : makePipe();
  const auto file = fileHolding(setup.input.value_or(""));
  process_ = spawn(setup, {setup.input ? file.get() : errorsEnd.get(), outputEnd.get(), errorsEnd.get()});
  output_.start(std::move(output));
  errors_.start(std::move(errors));
}

Process::~Process() {
  if (isWaitedFor_) return;
  signal(SIGKILL);
  static_cast<void>(wait());
}

void Process::type(std::string_view text) const {
  checked(static_cast<int>(::write(errors_.descriptor(), text.data(), text.size())));
}

void Process::signal(int number) const { ::kill(process_, number); }

std::optional<int> Process::wait() {
  const FileDescriptor handle(checked(static_cast<int>(::syscall(SYS_pidfd_open, process_, 0))));
  pollfd end{handle.get(), POLLIN, 0};
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(patience).count();
  if (::poll(&end, 1, static_cast<int>(milliseconds)) != 1) return std::nullopt;
  int status = 0;
  ::waitpid(process_, &status, 0);
  isWaitedFor_ = true;
  output_.join();
  errors_.join();
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void Process::Capture::start(FileDescriptor descriptor) {
  descriptor_ = std::move(descriptor);
  reader_ = std::jthread([this] { run(); });
}

bool Process::Capture::waitFor(std::string_view text) {
  std::unique_lock lock(mutex_);
  const auto isThere = [&] { return text_.find(text) != std::string::npos; };
  changed_.wait_for(lock, patience, [&] { return isThere() || hasEnded_; });
  return isThere();
}

std::string Process::Capture::text() {
  const std::scoped_lock lock(mutex_);
  return text_;
}

void Process::Capture::run() {
  std::array<char, 65536> buffer;
  ssize_t length = 0;
  do {
    length = ::read(descriptor_.get(), buffer.data(), buffer.size());
    const std::scoped_lock lock(mutex_);
    if (length > 0) text_.append(buffer.data(), static_cast<std::size_t>(length));
    hasEnded_ = length <= 0;  // the end of a terminal is an error
    changed_.notify_all();
  } while (length > 0);
}

}  // namespace vesko
