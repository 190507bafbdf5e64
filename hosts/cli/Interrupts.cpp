#include "hosts/cli/Interrupts.h"

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

#include "Platform/process/StopSignals.h"

namespace vesko {
namespace {

/// The program has to end within 2 seconds after a signal, whatever blocks it.
constexpr std::chrono::milliseconds grace{1800};

/// Some programs, such as timeout(1), signal a process and then its process group. Signals within this time count as
/// one.
constexpr std::chrono::milliseconds oneRequest{200};

[[noreturn]] void endWith(ExitCode code) { std::_Exit(static_cast<int>(code)); }

}  // namespace

struct Interrupts::Shared {
  std::mutex mutex;
  std::function<void()> onInterrupt;
  ExitCode overdue = ExitCode::interrupted;

  void waitForSignals() {
    StopSignals::wait();
    const ExitCode code = handleFirst();
    std::this_thread::sleep_for(oneRequest);
    (void)StopSignals::waitFor({});  // takes a second signal of the same request
    endWith(StopSignals::waitFor(grace - oneRequest) ? ExitCode::interrupted : code);
  }

  ExitCode handleFirst() {
    const std::scoped_lock lock(mutex);
    if (!onInterrupt) endWith(ExitCode::interrupted);
    onInterrupt();
    return overdue;
  }
};

Interrupts::Interrupts() : shared_(std::make_shared<Shared>()) {
  StopSignals::hold();
  std::thread([shared = shared_] { shared->waitForSignals(); }).detach();
}

void Interrupts::handle(std::function<void()> onInterrupt, ExitCode overdue) {
  const std::scoped_lock lock(shared_->mutex);
  shared_->onInterrupt = std::move(onInterrupt);
  shared_->overdue = overdue;
}

}  // namespace vesko
