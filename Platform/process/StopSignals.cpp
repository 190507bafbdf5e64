#include "Platform/process/StopSignals.h"

#include <pthread.h>
#include <signal.h>

#include <cerrno>

namespace vesko::StopSignals {
namespace {

bool isIgnored(int number) noexcept {
  struct sigaction action {};
  return ::sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t stopSignals() noexcept {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  // A closed terminal. Blocked, it would reach even those who asked to be spared.
  if (!isIgnored(SIGHUP)) sigaddset(&signals, SIGHUP);
  return signals;
}

}  // namespace

void hold() noexcept {
  const sigset_t signals = stopSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  // Shells start background jobs with SIGINT ignored; who sends it to this program means it.
  ::signal(SIGINT, SIG_DFL);
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
}

void wait() noexcept {
  const sigset_t signals = stopSignals();
  int number = 0;
  while (sigwait(&signals, &number) != 0) {
  }
}

bool waitFor(std::chrono::nanoseconds limit) noexcept {
  const sigset_t signals = stopSignals();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
  const timespec time{seconds.count(), (limit - seconds).count()};
  int result = 0;
  do {
    result = sigtimedwait(&signals, nullptr, &time);
  } while (result < 0 && errno == EINTR);
  return result >= 0;
}

}  // namespace vesko::StopSignals
