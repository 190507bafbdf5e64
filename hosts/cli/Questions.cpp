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

/// What the sender announces: name of the first element, count and size.
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

/// Shared with the reading thread, which outlives the owner: nothing can wake a thread that reads from a terminal.
struct Questions::Shared {
  std::mutex mutex;
  std::function<void(TransferId, bool)> answer;
  std::optional<TransferId> asked;  // the question on the screen, until it is answered
  bool hasInput = true;

  void read() {
    std::string line;
    while (std::getline(std::cin, line)) answerWith(isYes(line));
    const std::scoped_lock lock(mutex);
    hasInput = false;  // the terminal was closed: nobody can answer, so every answer is no
    if (asked) answerNow(false);
  }

  void answerWith(bool accepted) {
    const std::scoped_lock lock(mutex);
    // A line typed before the question appeared must not answer it.
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

  /// Withdraws the question. True when the user had answered it.
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
  // `ask` first: otherwise an answer typed as soon as the question is visible could be lost.
  shared_->ask(open_.front().transfer);
  console_.keepAsking(questionText(open_.front(), console_.columns()));
}

}  // namespace vesko
