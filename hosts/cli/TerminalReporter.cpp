#include "hosts/cli/TerminalReporter.h"

#include <algorithm>
#include <cctype>

#include "VeskoKit/Log.h"
#include "hosts/common/session/PeerNames.h"
#include "hosts/common/text/HumanText.h"

namespace vesko {
namespace {

/// Shortest time between two updates of the bar: enough to look smooth.
constexpr std::chrono::milliseconds barInterval{100};

/// Without a bar, a stall of this length is reported by one line, once for each transfer.
constexpr std::chrono::seconds longStandstill{10};

/// A received text for a terminal: control characters are escaped, except line feeds and tabs.
std::string escapedText(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto length = std::min(text.find_first_of("\n\t"), text.size());
    result += Log::escaped(text.substr(0, length));
    result += text.substr(length, 1);
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return result;
}

std::string amountText(const FinishedEvent& event) {
  const std::string count = event.elements == 1 ? "" : countText(event.elements, "element") + ", ";
  return count + sizeText(event.bytes);
}

std::string speedText(const FinishedEvent& event) {
  constexpr double shortest = 0.05;  // seconds; below, the rate would mostly measure the scheduler
  if (event.seconds < shortest) return {};
  return " in " + durationText(event.seconds) + " (" + rateText(static_cast<double>(event.bytes) / event.seconds) + ')';
}

std::string skippedText(std::uint64_t count) { return count == 0 ? "" : ", " + std::to_string(count) + " skipped"; }

/// Name and address of the other side; of a sender only the address is known here.
std::string otherSideOf(const TransferView& transfer) {
  if (transfer.direction == TransferDirection::in) return transfer.ip;
  return describedPeer({transfer.ip, transfer.ip, transfer.port, transfer.systemSignature, "", {}});
}

/// The same for the bar: only the address when the name is long.
std::string nameForBar(const TransferView& transfer) {
  constexpr std::size_t longest = 40;
  const std::string name = Log::escaped(otherSideOf(transfer));
  return name.size() > longest ? transfer.ip : name;
}

std::string upperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char letter) { return std::toupper(letter); });
  return text;
}

}  // namespace

void TerminalReporter::report(const Event& event) {
  state_.apply(event);
  std::visit([this](const auto& any) { on(any); }, event);
}

bool TerminalReporter::wants(const Event& event) const {
  return std::visit(
      Overloaded{[](const PeerUpdatedEvent&) { return false; }, [this](const PeerAppearedEvent&) { return !isQuiet_; },
                 [this](const PeerDisappearedEvent&) { return !isQuiet_; },
                 [this](const ProgressEvent&) { return !isQuiet_; }, [](const auto&) { return true; }},
      event);
}

void TerminalReporter::on(const ReadyEvent& event) {
  note("listening on port " + std::to_string(event.tcpPort) + ", receiving into " + event.downloads);
}

void TerminalReporter::on(const StartupFailureEvent& event) {
  console_.complain("cannot listen on " + upperCase(event.endpoint) + " port " + std::to_string(event.port) + ": " +
                    event.reason);
}

void TerminalReporter::on(const PeerAppearedEvent& event) { note("here: " + describedPeer(event.peer)); }

void TerminalReporter::on(const PeerDisappearedEvent& event) { note("gone: " + describedPeer(event.peer)); }

void TerminalReporter::on(const ProgressEvent& event) {
  if (isQuiet_) return;
  const TimePoint now = clock_->monotonicNow();
  const auto [found, isFirst] = paces_.try_emplace(event.transfer);
  found->second.note(event, now);
  if (isFirst && transfer(event.transfer).direction == TransferDirection::out) unnoted_.insert(event.transfer);
  isBarBehind_ = true;
  if (!drawn_ || now - *drawn_ >= barInterval) drawBar(now);
}

void TerminalReporter::on(const TextReceivedEvent& event) {
  note("text from " + transfer(event.transfer).ip + ", " + sizeText(event.text.size()) + ':');
  std::string text = console_.outputIsTerminal() ? escapedText(event.text) : event.text;
  if (!text.ends_with('\n')) text += '\n';
  console_.print(text);
}

void TerminalReporter::on(const FinishedEvent& event) {
  forget(event.transfer);
  console_.clearBar();
  const TransferView& ended = transfer(event.transfer);
  if (ended.direction == TransferDirection::out) {
    printSent(ended, event);
  } else if (!ended.isText) {
    printSaved(ended, event);
  }
}

void TerminalReporter::on(const FailedEvent& event) {
  forget(event.transfer);
  const TransferView& ended = transfer(event.transfer);
  const std::string what =
      ended.direction == TransferDirection::out ? "sending " + ended.name + " to " : "receiving from ";
  console_.complain(what + otherSideOf(ended) + ": " + event.message);
}

void TerminalReporter::on(const SkippedEvent& event) { console_.complain("skipped " + event.message); }

void TerminalReporter::on(const RefusedEvent& event) {
  note("refused a connection from " + event.ip + ": its address is not in --allow");
}

void TerminalReporter::note(const std::string& line) {
  if (!isQuiet_) console_.note(line);
}

std::optional<std::chrono::steady_clock::time_point> TerminalReporter::refreshAt() const {
  if (!console_.showsBars()) {
    std::optional<TimePoint> first;
    for (const auto id : unnoted_) {
      const auto due = paces_.at(id).lastMoved() + longStandstill;
      if (!first || due < *first) first = due;
    }
    return first;
  }
  if (paces_.empty()) return std::nullopt;
  const auto next = paces_.begin()->second.nextChange(clock_->monotonicNow());
  return isBarBehind_ ? std::min(next, *drawn_ + barInterval) : next;
}

void TerminalReporter::refresh() {
  const TimePoint now = clock_->monotonicNow();
  console_.showsBars() ? drawBar(now) : noteStandstills(now);
}

void TerminalReporter::drawBar(TimePoint now) {
  if (paces_.empty() || !console_.showsBars()) return;
  drawn_ = now;
  isBarBehind_ = false;
  const auto& [oldest, pace] = *paces_.begin();
  const TransferView& view = transfer(oldest);
  const ProgressEvent& progress = *view.progress;
  console_.showBar(
      progressLine({Log::escaped(progress.name), progress.elementCount, progress.finishedElements, progress.totalSize,
                    progress.finishedBytes, pace.rate(), waitingText(view, nameForBar(view), pace.standstill(now))},
                   console_.columns()));
}

void TerminalReporter::noteStandstills(TimePoint now) {
  for (auto each = unnoted_.begin(); each != unnoted_.end();) {
    const auto id = *each;
    const auto standstill = paces_.at(id).standstill(now);
    if (standstill < longStandstill) {
      ++each;
      continue;
    }
    each = unnoted_.erase(each);
    const std::string who = otherSideOf(transfer(id));
    note("sending " + transfer(id).name + " to " + who + ": " + waitingText(transfer(id), who, standstill));
  }
}

void TerminalReporter::forget(TransferId id) {
  paces_.erase(id);
  unnoted_.erase(id);
}

void TerminalReporter::printSaved(const TransferView& saved, const FinishedEvent& event) {
  if (saved.path.empty()) return note("nothing to save from " + saved.ip + skippedText(event.skipped));
  if (isQuiet_) {
    return console_.print((console_.outputIsTerminal() ? Log::escaped(saved.path) : saved.path) + '\n');
  }
  console_.print("saved " + Log::escaped(saved.path) + ": " + amountText(event) + " from " + saved.ip +
                 speedText(event) + skippedText(event.skipped) + '\n');
}

void TerminalReporter::printSent(const TransferView& sent, const FinishedEvent& event) {
  if (isQuiet_) return;
  console_.print("sent " + Log::escaped(sent.name) + " to " + Log::escaped(otherSideOf(sent)) + ": " +
                 amountText(event) + speedText(event) + '\n');
}

}  // namespace vesko
