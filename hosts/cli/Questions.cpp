#include "hosts/cli/Questions.h"

#include <algorithm>
#include <iostream>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "VeskoKit/Log.h"
#include "hosts/common/text/HumanText.h"

namespace vesko {
namespace {

bool isYes(std::string_view line) { return line == "y" || line == "Y" || line == "yes" || line == "Yes"; }

/// What the sender says it is.
std::string contentText(const QuestionEvent& event, std::size_t nameColumns) {
  if (event.name.empty()) return "a text (" + sizeText(event.totalSize) + ")";
  const std::string count = event.elementCount == 1 ? "" : countText(event.elementCount, "element") + ", ";
  return '"' + fittedText(Log::escaped(event.name), nameColumns) + "\" (" + count + sizeText(event.totalSize) + ")";
}

std::string questionText(const QuestionEvent& event, std::size_t columns) {
  const auto textWith = [&](std::size_t nameColumns) {
    return "receive " + contentText(event, nameColumns) + " from " + event.ip + "? [y/N] ";
  };
  const std::size_t others = columnsOf(textWith(0));
  constexpr std::size_t shortest = 8;
  return textWith(std::max(shortest, columns - std::min(columns, others)));
}

}  // namespace

/// Outlives its owner, since nothing wakes a thread that waits for somebody to type.
struct Questions::Shared {
  std::mutex mutex;
  std::function<void(TransferId, bool)> answer;
  std::optional<TransferId> asked;  // the question that is on the screen and has no answer yet
  bool hasInput = true;

  void read() {
    std::string line;
    while (std::getline(std::cin, line)) answerWith(isYes(line));
    const std::scoped_lock lock(mutex);
    hasInput = false;
    if (asked) answerNow(false);
  }

  void answerWith(bool accepted) {
    const std::scoped_lock lock(mutex);
    // What is typed while nothing is asked is no answer to what comes.
    if (asked) answerNow(accepted);
  }

  void answerNow(bool accepted) {
    const TransferId id = *std::exchange(asked, std::nullopt);
    if (answer) answer(id, accepted);
  }

  void ask(TransferId id) {
    const std::scoped_lock lock(mutex);
    asked = id;
    if (!hasInput) answerNow(false);
  }

  /// True when the question that was on the screen had been answered.
  [[nodiscard]] bool stop() {
    const std::scoped_lock lock(mutex);
    return !std::exchange(asked, std::nullopt);
  }
};

Questions::Questions(Console& console, std::function<void(TransferId, bool)> answer)
    : console_(console), shared_(std::make_shared<Shared>()) {
  shared_->answer = std::move(answer);
  std::thread([shared = shared_] { shared->read(); }).detach();
}

Questions::~Questions() {
  console_.stopAsking(shared_->stop());
  const std::scoped_lock lock(shared_->mutex);
  shared_->answer = nullptr;
}

void Questions::take(const Event& event) {
  std::visit(Overloaded{[this](const QuestionEvent& any) { add(any); },
                        [this](const AnswerEvent& any) { remove(any.transfer); },
                        [this](const FailedEvent& any) { remove(any.transfer); }, [](const auto& /*any*/) {}},
             event);
}

void Questions::add(const QuestionEvent& event) {
  open_.push_back(event);
  if (open_.size() == 1) showFirst();
}

void Questions::remove(TransferId transfer) {
  const auto found = std::ranges::find(open_, transfer, &QuestionEvent::transfer);
  if (found == open_.end()) return;
  const bool wasShown = found == open_.begin();
  open_.erase(found);
  if (!wasShown) return;
  console_.stopAsking(shared_->stop());
  if (!open_.empty()) showFirst();
}

void Questions::showFirst() {
  // In this order: no answer to what can be read is lost.
  shared_->ask(open_.front().transfer);
  console_.keepAsking(questionText(open_.front(), console_.columns()));
}

}  // namespace vesko
