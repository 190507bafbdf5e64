#include "hosts/cli/TerminalReporter.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "VeskoKit/Log.h"
#include "hosts/common/HumanText.h"
#include "hosts/common/PeerNames.h"

namespace vesko {
namespace {

/// `text` for a terminal: lines and tabs stay what they are, other control characters are escaped.
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
  constexpr double shortest = 0.05;  // below, the time says more about the scheduler than about the way
  if (event.seconds < shortest) return {};
  return " in " + durationText(event.seconds) + " (" + rateText(static_cast<double>(event.bytes) / event.seconds) + ')';
}

std::string leftOutText(std::uint64_t count) { return count == 0 ? "" : ", " + std::to_string(count) + " left out"; }

/// Who is at the other end.
std::string otherSideOf(const TransferView& transfer) {
  if (transfer.direction == TransferDirection::in) return transfer.ip;
  return describedPeer({transfer.ip, transfer.ip, transfer.port, transfer.systemSignature, "", {}});
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
  if (isQuiet_ || !console_.showsBars()) return;
  measure(event);
  drawBar();
}

void TerminalReporter::on(const TextReceivedEvent& event) {
  note("text from " + transfer(event.transfer).ip + ", " + sizeText(event.text.size()) + ':');
  std::string text = console_.outputIsTerminal() ? escapedText(event.text) : event.text;
  if (!text.ends_with('\n')) text += '\n';
  console_.print(text);
}

void TerminalReporter::on(const FinishedEvent& event) {
  speeds_.erase(event.transfer);
  console_.clearBar();
  const TransferView& ended = transfer(event.transfer);
  if (ended.direction == TransferDirection::out) {
    printSent(ended, event);
  } else if (!ended.isText) {
    printSaved(ended, event);
  }
}

void TerminalReporter::on(const FailedEvent& event) {
  speeds_.erase(event.transfer);
  const TransferView& ended = transfer(event.transfer);
  const std::string what = ended.direction == TransferDirection::out ? "sending to " : "receiving from ";
  console_.complain(what + otherSideOf(ended) + ": " + event.message);
}

void TerminalReporter::on(const SkippedEvent& event) { console_.complain("left out " + event.message); }

void TerminalReporter::on(const RefusedEvent& event) {
  note("refused a connection from " + event.ip + ", which is not allowed");
}

void TerminalReporter::note(const std::string& line) {
  if (!isQuiet_) console_.note(line);
}

void TerminalReporter::measure(const ProgressEvent& event) {
  constexpr double memory = 3;  // seconds: long enough for a steady number, short enough to show that the way changed
  const TimePoint now = clock_->monotonicNow();
  const auto [found, isFirst] = speeds_.try_emplace(event.transfer, Speed{now, event.finishedBytes});
  if (isFirst) return;
  Speed& speed = found->second;
  const double seconds = std::max(std::chrono::duration<double>(now - speed.measured).count(), 1e-3);
  const double rate = static_cast<double>(event.finishedBytes - speed.bytes) / seconds;
  const double weight = speed.rate == 0 ? 1 : 1 - std::exp(-seconds / memory);
  speed = {now, event.finishedBytes, speed.rate + weight * (rate - speed.rate)};
}

void TerminalReporter::drawBar() {
  constexpr std::chrono::milliseconds interval{100};
  const TimePoint now = clock_->monotonicNow();
  if (speeds_.empty() || (drawn_ && now - *drawn_ < interval)) return;
  drawn_ = now;
  const auto& [oldest, speed] = *speeds_.begin();
  const ProgressEvent& progress = *transfer(oldest).progress;
  console_.showBar(progressLine({Log::escaped(progress.name), progress.elementCount, progress.finishedElements,
                                 progress.totalSize, progress.finishedBytes, speed.rate},
                                console_.columns()));
}

void TerminalReporter::printSaved(const TransferView& saved, const FinishedEvent& event) {
  if (saved.path.empty()) return note("nothing to save from " + saved.ip + leftOutText(event.skipped));
  if (isQuiet_) {
    return console_.print((console_.outputIsTerminal() ? Log::escaped(saved.path) : saved.path) + '\n');
  }
  console_.print("saved " + Log::escaped(saved.path) + ": " + amountText(event) + " from " + saved.ip +
                 speedText(event) + leftOutText(event.skipped) + '\n');
}

void TerminalReporter::printSent(const TransferView& sent, const FinishedEvent& event) {
  if (isQuiet_) return;
  console_.print("sent " + Log::escaped(sent.name) + " to " + Log::escaped(otherSideOf(sent)) + ": " +
                 amountText(event) + speedText(event) + '\n');
}

}  // namespace vesko
