#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "hosts/cli/Console.h"
#include "hosts/common/events/Events.h"

namespace vesko {

/// Asks the user at the terminal about transfers, one question at a time. Transfers and output continue meanwhile. Used
/// on the main thread; a thread of its own reads standard input, because that blocks.
///
///     Questions questions(console, [&](TransferId id, bool accepted) { session.answer(id, accepted); });
///     questions.take(event);   // every event: a question is asked, an answer or a failure withdraws it
class Questions {
 public:
  /// `answer` is called on any thread, but not after the destructor.
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
  std::deque<QuestionEvent> open_;  // the first one is on the screen
};

}  // namespace vesko
