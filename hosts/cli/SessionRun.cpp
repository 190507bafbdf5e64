#include "hosts/cli/SessionRun.h"

#include "hosts/common/session/Session.h"

namespace vesko {
namespace {

constexpr TransferId firstTransfer = 1;

ExitCode codeOf(const FailedEvent& event) {
  if (event.reason == VeskoFailureReason::cancelled) return ExitCode::interrupted;
  return event.wasConnected ? ExitCode::brokeOff : ExitCode::couldNotConnect;
}

}  // namespace

void SessionRun::handleInterrupts(ExitCode overdue) {
  program_.interrupts.handle([events = events_] { events->interrupt(); }, overdue);
}

void SessionRun::takeEvents(const std::function<bool()>& isDone) {
  while (true) {
    if (const auto event = events_->next(program_.reporter.refreshAt())) {
      take(*event);
      if (isDone()) return;
    } else if (events_->isInterrupted()) {
      return;
    } else {
      program_.reporter.refresh();
    }
  }
}

void SessionRun::takeWaitingEvents() {
  while (const auto event = events_->nextWaiting()) take(*event);
}

void SessionRun::windDown(Session& session) {
  program_.console.clearBar();
  // Goodbye first: it must be sent even if the transfers take until the deadline to end.
  session.leave();
  session.cancelAll();
  takeWaitingEvents();
  while (running_ > 0) {
    if (const auto event = events_->next()) take(*event);
  }
}

void SessionRun::take(const Event& event) {
  if (listener_) listener_(event);
  program_.reporter.report(event);
  std::visit(Overloaded{[this](const TransferStartedEvent&) { ++running_; },
                        [this](const FinishedEvent& end) {
                          const bool isIncomplete = isFirstIncomplete_ || end.skipped > 0;
                          noteEnd(end.transfer, isIncomplete ? ExitCode::incomplete : ExitCode::success);
                        },
                        [this](const FailedEvent& end) { noteEnd(end.transfer, codeOf(end)); },
                        [this](const SkippedEvent& skipped) {
                          if (skipped.transfer == firstTransfer) isFirstIncomplete_ = true;
                        },
                        [](const auto&) {}},
             event);
}

void SessionRun::noteEnd(TransferId transfer, ExitCode code) {
  --running_;
  if (transfer == firstTransfer) firstEnd_ = code;
}

}  // namespace vesko
