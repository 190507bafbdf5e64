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

namespace vesko {
namespace {

constexpr std::chrono::seconds patience{10};

int checked(int result) {
  if (result < 0) throw std::system_error(errno, std::generic_category());
  return result;
}

struct Channel {
  FileDescriptor ours;
  FileDescriptor theirs;
};

Channel makePipe(bool weRead) {
  std::array<int, 2> ends{};
  checked(::pipe2(ends.data(), O_CLOEXEC));
  FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  return weRead ? Channel{std::move(reading), std::move(writing)} : Channel{std::move(writing), std::move(reading)};
}

Channel makeTerminal(unsigned short columns) {
  const winsize size{25, columns, 0, 0};
  int ours = -1;
  int theirs = -1;
  checked(::openpty(&ours, &theirs, nullptr, nullptr, &size));
  ::fcntl(ours, F_SETFD, FD_CLOEXEC);
  ::fcntl(theirs, F_SETFD, FD_CLOEXEC);
  return {FileDescriptor(ours), FileDescriptor(theirs)};
}

/// A file in memory, so that no amount of input has to wait for its reader.
FileDescriptor fileHolding(const std::string& bytes) {
  FileDescriptor file(checked(::memfd_create("input", MFD_CLOEXEC)));
  checked(static_cast<int>(::write(file.get(), bytes.data(), bytes.size())));
  ::lseek(file.get(), 0, SEEK_SET);
  return file;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (auto& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// Starts a program with these descriptors as its standard ones.
int spawn(const Process::Setup& setup, int input, int output, int errors) {
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  auto arguments = setup.arguments;
  auto environment = setup.environment;
  for (char** entry = environ; *entry != nullptr; ++entry) environment.emplace_back(*entry);
  pid_t process = -1;
  const int failure = ::posix_spawn(&process, arguments.front().c_str(), &actions, nullptr,
                                    pointersTo(arguments).data(), pointersTo(environment).data());
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) throw std::system_error(failure, std::generic_category(), arguments.front());
  return process;
}

FileDescriptor copyOf(const FileDescriptor& descriptor) {
  return FileDescriptor(checked(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 0)));
}

Channel makeInput(const Process::Setup& setup, const Channel& terminal) {
  if (setup.input) return {{}, fileHolding(*setup.input)};
  return setup.terminalColumns ? Channel{copyOf(terminal.ours), copyOf(terminal.theirs)} : makePipe(false);
}

}  // namespace

Process::Process(const Setup& setup) {
  Channel output = makePipe(true);
  Channel errors = setup.terminalColumns ? makeTerminal(*setup.terminalColumns) : makePipe(true);
  Channel input = makeInput(setup, errors);
  process_ = spawn(setup, input.theirs.get(), output.theirs.get(), errors.theirs.get());
  openInput_ = std::move(input.ours);
  output_.start(std::move(output.ours));
  errors_.start(std::move(errors.ours));
}

Process::~Process() {
  if (isWaitedFor_) return;
  signal(SIGKILL);
  static_cast<void>(wait());
}

void Process::type(std::string_view text) const {
  checked(static_cast<int>(::write(openInput_.get(), text.data(), text.size())));
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
  reader_ = std::thread([this] { run(); });
}

void Process::Capture::join() {
  if (reader_.joinable()) reader_.join();
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
