#include "Platform/process/Command.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "Platform/files/FileDescriptor.h"
#include "Platform/process/SystemError.h"

namespace vesko {
namespace {

using Deadline = std::chrono::steady_clock::time_point;

std::string pathOf(const std::string& program) {
  const char* path = std::getenv("PATH");
  // Many users' PATH leaves out the folders of tools that only some of what they do needs an administrator for.
  std::string folders = (path != nullptr ? std::string(path) : "/usr/bin:/bin") + ":/usr/sbin:/sbin:";
  while (!folders.empty()) {
    const auto length = folders.find(':');
    std::string file = folders.substr(0, length) + '/' + program;
    if (file.front() == '/' && length > 0 && ::access(file.c_str(), X_OK) == 0) return file;
    folders.erase(0, length + 1);
  }
  return {};
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (auto& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// A program's signals as they are by default, whatever ours are, and a process group, so that its helpers end with it.
class Attributes {
 public:
  Attributes() {
    ::posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    sigaddset(&signals, SIGPIPE);
    sigaddset(&signals, SIGXFSZ);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  }
  ~Attributes() { ::posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  [[nodiscard]] const posix_spawnattr_t* get() const noexcept { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

pid_t spawn(const std::string& file, std::vector<std::string> arguments, int output, std::error_code& error) {
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const Attributes attributes;
  pid_t process = -1;
  const int failure =
      ::posix_spawn(&process, file.c_str(), &actions, attributes.get(), pointersTo(arguments).data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  error.assign(failure, std::system_category());
  return process;
}

void waitUntilReadable(int descriptor, Deadline deadline, std::error_code& error) {
  pollfd waited{descriptor, POLLIN, 0};
  const int ready = uninterrupted([&] {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return ::poll(&waited, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
  });
  if (ready < 0) error = lastSystemError();
  if (ready == 0) error = std::make_error_code(std::errc::timed_out);
}

/// All that comes out of `descriptor`.
std::string readAll(int descriptor, Deadline deadline, std::error_code& error) {
  std::string text;
  std::array<char, 65536> buffer;
  while (true) {
    waitUntilReadable(descriptor, deadline, error);
    if (error) return text;
    const auto length = uninterrupted([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
    if (length < 0) error = lastSystemError();
    if (length <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(length));
    if (text.size() > commandOutputLimit) {
      error = std::make_error_code(std::errc::file_too_large);
      return text;
    }
  }
}

void waitForEnd(pid_t process, Deadline deadline, std::error_code& error) {
  const FileDescriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
  if (!handle) {
    error = lastSystemError();
  } else {
    waitUntilReadable(handle.get(), deadline, error);
  }
}

}  // namespace

CommandResult runCommand(const std::vector<std::string>& arguments, std::chrono::seconds limit,
                         std::error_code& error) {
  error.clear();
  const std::string file = pathOf(arguments.front());
  if (file.empty()) error = std::make_error_code(std::errc::no_such_file_or_directory);
  std::array<int, 2> ends{-1, -1};
  if (!error && ::pipe2(ends.data(), O_CLOEXEC) != 0) error = lastSystemError();
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const pid_t process = error ? -1 : spawn(file, arguments, writing.get(), error);
  if (error) return {};
  writing.reset();
  const Deadline deadline = std::chrono::steady_clock::now() + limit;
  CommandResult result;
  result.output = readAll(reading.get(), deadline, error);
  if (!error) waitForEnd(process, deadline, error);
  if (error) ::kill(-process, SIGKILL);
  int status = 0;
  if (uninterrupted([&] { return ::waitpid(process, &status, 0); }) == process && !error) {
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  return result;
}

}  // namespace vesko
