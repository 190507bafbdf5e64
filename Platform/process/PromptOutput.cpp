#include "Platform/process/PromptOutput.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "Platform/files/FileDescriptor.h"
#include "Platform/process/SystemError.h"
#include "Platform/queues/QueueFoundation.h"

namespace vesko {
namespace {

/// Takes back the signals that failed writes raise while it lives: the thread may be the host's, which has asked for
/// none of them.
class WithoutWriteSignals {
 public:
  WithoutWriteSignals() noexcept {
    sigset_t pending;
    sigemptyset(&pending);
    ::sigpending(&pending);
    sigemptyset(&raised_);
    for (const int number : {SIGPIPE, SIGXFSZ}) {
      if (sigismember(&pending, number) == 0) sigaddset(&raised_, number);
    }
    pthread_sigmask(SIG_BLOCK, nullptr, &before_);
    blockWriteSignals();
  }
  ~WithoutWriteSignals() {
    const timespec atOnce{};
    while (::sigtimedwait(&raised_, nullptr, &atOnce) >= 0 || errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  WithoutWriteSignals(const WithoutWriteSignals&) = delete;
  WithoutWriteSignals& operator=(const WithoutWriteSignals&) = delete;

 private:
  sigset_t raised_{};
  sigset_t before_{};
};

/// An open file of this process's own, so that not waiting is a matter of ours alone; other processes may share what
/// they have in common with our standard output.
FileDescriptor openWithoutWaiting(const std::string& path, int flags) noexcept {
  constexpr mode_t mode = 0666;
  const int all = O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | flags;
  return FileDescriptor(uninterrupted([&] { return ::open(path.c_str(), all, mode); }));
}

bool isReady(int descriptor, std::chrono::milliseconds limit) noexcept {
  pollfd waited{descriptor, POLLOUT, 0};
  return uninterrupted([&] { return ::poll(&waited, 1, static_cast<int>(limit.count())); }) == 1 &&
         (waited.revents & POLLOUT) != 0;
}

/// Adds to `done` what a descriptor takes of the rest of `bytes` with one call.
std::error_code writeOnce(int descriptor, std::string_view bytes, std::size_t& done) noexcept {
  const WithoutWriteSignals none;
  const auto count = uninterrupted([&] { return ::write(descriptor, bytes.data() + done, bytes.size() - done); });
  if (count < 0) return lastSystemError();
  done += static_cast<std::size_t>(count);
  return {};
}

/// To a descriptor that does not wait, or that never has to.
std::size_t writeAll(int descriptor, std::string_view bytes, std::error_code& error) noexcept {
  std::size_t done = 0;
  while (done < bytes.size() && !error) error = writeOnce(descriptor, bytes, done);
  return done;
}

/// For a descriptor that may block. Once poll(2) reports it as writable, PIPE_BUF bytes do not block (pipe(7)).
std::size_t writeWhileReady(int descriptor, std::string_view bytes, std::error_code& error) noexcept {
  std::size_t done = 0;
  while (done < bytes.size() && !error) {
    if (isReady(descriptor, {})) {
      error = writeOnce(descriptor, bytes.substr(0, done + PIPE_BUF), done);
    } else {
      error = std::make_error_code(std::errc::operation_would_block);
    }
  }
  return done;
}

class OutputAtPath final : public PromptOutput {
 public:
  OutputAtPath(std::string path, FileDescriptor descriptor)
      : path_(std::move(path)), descriptor_(std::move(descriptor)) {}

  std::size_t write(std::string_view bytes, std::error_code& error) noexcept override {
    error.clear();
    if (!descriptor_) descriptor_ = openWithoutWaiting(path_, 0);
    if (!descriptor_) error = lastSystemError();
    return error ? 0 : writeAll(descriptor_.get(), bytes, error);
  }

  bool waitForRoom(std::chrono::milliseconds limit) const noexcept override {
    return descriptor_ && isReady(descriptor_.get(), limit);
  }

 private:
  const std::string path_;
  FileDescriptor descriptor_;  // none: a pipe that nobody has read yet
};

class StandardOutput final : public PromptOutput {
 public:
  std::size_t write(std::string_view bytes, std::error_code& error) noexcept override {
    error.clear();
    struct stat status {};
    if (::fstat(STDOUT_FILENO, &status) != 0) error = lastSystemError();
    if (error) return 0;
    if (S_ISREG(status.st_mode)) return writeAll(STDOUT_FILENO, bytes, error);
    // Opened anew each time: the host may put something else in its place, and who reads waits for the end of all that
    // is open.
    if (const FileDescriptor own = openWithoutWaiting("/proc/self/fd/1", 0)) return writeAll(own.get(), bytes, error);
    return writeWhileReady(STDOUT_FILENO, bytes, error);  // a socket, which cannot be opened anew
  }

  bool waitForRoom(std::chrono::milliseconds limit) const noexcept override { return isReady(STDOUT_FILENO, limit); }
};

bool isPipe(const std::string& path) noexcept {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

std::unique_ptr<PromptOutput> PromptOutput::atPath(const std::string& path, std::error_code& error) {
  error.clear();
  FileDescriptor descriptor = openWithoutWaiting(path, O_CREAT);
  if (!descriptor) error = lastSystemError();
  if (error == std::errc::no_such_device_or_address && isPipe(path)) error.clear();
  if (error) return nullptr;
  return std::make_unique<OutputAtPath>(path, std::move(descriptor));
}

std::unique_ptr<PromptOutput> PromptOutput::standard() { return std::make_unique<StandardOutput>(); }

}  // namespace vesko
