#include "hosts/cli/Interrupts.h"

#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <thread>
#include <utility>

namespace vesko {
namespace {

/// Whoever stops the program may count on its end within two seconds.
constexpr timespec grace{1, 800'000'000};

[[noreturn]] void endWith(ExitCode code) { std::_Exit(static_cast<int>(code)); }

sigset_t interruptions() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

}  // namespace

struct Interrupts::Shared {
  std::mutex mutex;
  std::function<void()> onInterrupt;
  ExitCode overdue = ExitCode::interrupted;

  void waitForSignals() {
    const sigset_t signals = interruptions();
    int number = 0;
    while (sigwait(&signals, &number) != 0) {
    }
    const ExitCode code = handleFirst();
    int result = 0;
    do {
      result = sigtimedwait(&signals, nullptr, &grace);
    } while (result < 0 && errno == EINTR);
    endWith(result < 0 ? code : ExitCode::interrupted);
  }

  ExitCode handleFirst() {
    const std::scoped_lock lock(mutex);
    if (!onInterrupt) endWith(ExitCode::interrupted);
    onInterrupt();
    return overdue;
  }
};

Interrupts::Interrupts() : shared_(std::make_shared<Shared>()) {
  const sigset_t signals = interruptions();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  // Shells start background jobs with SIGINT ignored; who sends it to this program means it.
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
  std::thread([shared = shared_] { shared->waitForSignals(); }).detach();
}

void Interrupts::handle(std::function<void()> onInterrupt, ExitCode overdue) {
  const std::scoped_lock lock(shared_->mutex);
  shared_->onInterrupt = std::move(onInterrupt);
  shared_->overdue = overdue;
}

}  // namespace vesko
