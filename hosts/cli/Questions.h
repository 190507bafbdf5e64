#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "hosts/cli/Console.h"
#include "hosts/common/events/Events.h"

namespace vesko {

/// Asks the person at the terminal about transfers, one after the other, while everything else goes on. Used on the
/// main thread; a thread of its own waits for what is typed.
class Questions {
 public:
  /// `answer` is called on any thread, but not after the end of this.
  Questions(Console& console, std::function<void(TransferId, bool)> answer);
  ~Questions();
  Questions(const Questions&) = delete;
  Questions& operator=(const Questions&) = delete;

  /// Takes every event of the session.
  void take(const Event& event);

 private:
  struct Shared;

  void add(const QuestionEvent& event);
  void remove(TransferId transfer);
  void showFirst();

  Console& console_;
  const std::shared_ptr<Shared> shared_;
  std::deque<QuestionEvent> open_;
};

}  // namespace vesko
