#include "hosts/cli/TerminalReporter.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "VeskoKit/Log.h"

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

std::string upperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char letter) { return std::toupper(letter); });
  return text;
}

}  // namespace

void TerminalReporter::report(const Event& event) {
  std::visit([this](const auto& any) { on(any); }, event);
}

void TerminalReporter::on(const ReadyEvent& event) {
  note("listening on TCP port " + std::to_string(event.tcpPort) + ", receiving into " + event.downloads);
}

void TerminalReporter::on(const StartupFailureEvent& event) {
  console_.complain("cannot listen on " + upperCase(event.endpoint) + " port " + std::to_string(event.port) + ": " +
                    event.reason);
}

void TerminalReporter::on(const TransferStartedEvent& event) {
  Transfer& transfer = transfers_[event.transfer];
  transfer.direction = event.direction;
  transfer.ip = event.ip;
  transfer.name = event.name;
}

void TerminalReporter::on(const ProgressEvent& event) {
  if (isQuiet_ || !console_.showsBars()) return;
  Transfer& transfer = transfers_[event.transfer];
  measure(transfer, event.finishedBytes);
  transfer.view = {Log::escaped(event.name), event.elementCount,  event.finishedElements,
                   event.totalSize,          event.finishedBytes, transfer.view.rate};
  drawBar();
}

void TerminalReporter::on(const TextReceivedEvent& event) {
  Transfer& transfer = transfers_[event.transfer];
  transfer.isText = true;
  note("text from " + transfer.ip + ", " + sizeText(event.text.size()) + ':');
  std::string text = console_.outputIsTerminal() ? escapedText(event.text) : event.text;
  if (!text.ends_with('\n')) text += '\n';
  console_.print(text);
}

void TerminalReporter::on(const ItemsSavedEvent& event) { transfers_[event.transfer].path = event.path; }

void TerminalReporter::on(const FinishedEvent& event) {
  const Transfer transfer = std::move(transfers_[event.transfer]);
  transfers_.erase(event.transfer);
  console_.clearBar();
  if (transfer.direction == TransferDirection::out) {
    printSent(transfer, event);
  } else if (!transfer.isText) {
    printSaved(transfer, event);
  }
}

void TerminalReporter::on(const FailedEvent& event) {
  const Transfer transfer = std::move(transfers_[event.transfer]);
  transfers_.erase(event.transfer);
  const std::string what = transfer.direction == TransferDirection::out ? "sending to " : "receiving from ";
  console_.complain(what + transfer.ip + ": " + event.message);
}

void TerminalReporter::on(const SkippedEvent& event) { console_.complain("left out " + event.message); }

void TerminalReporter::note(const std::string& line) {
  if (!isQuiet_) console_.note(line);
}

void TerminalReporter::measure(Transfer& transfer, std::uint64_t finishedBytes) const {
  constexpr double memory = 3;  // seconds: long enough for a steady number, short enough to show that the way changed
  const TimePoint now = clock_->monotonicNow();
  if (transfer.measured) {
    const double seconds = std::max(std::chrono::duration<double>(now - *transfer.measured).count(), 1e-3);
    const double rate = static_cast<double>(finishedBytes - transfer.view.finishedBytes) / seconds;
    const double weight = transfer.view.rate == 0 ? 1 : 1 - std::exp(-seconds / memory);
    transfer.view.rate += weight * (rate - transfer.view.rate);
  }
  transfer.measured = now;
}

void TerminalReporter::drawBar() {
  constexpr std::chrono::milliseconds interval{100};
  const TimePoint now = clock_->monotonicNow();
  if (drawn_ && now - *drawn_ < interval) return;
  const auto oldest = std::find_if(transfers_.begin(), transfers_.end(),
                                   [](const auto& entry) { return entry.second.measured.has_value(); });
  if (oldest == transfers_.end()) return;
  drawn_ = now;
  console_.showBar(progressLine(oldest->second.view, console_.columns()));
}

void TerminalReporter::printSaved(const Transfer& transfer, const FinishedEvent& event) {
  if (transfer.path.empty()) return note("nothing to save from " + transfer.ip + leftOutText(event.skipped));
  if (isQuiet_) {
    return console_.print((console_.outputIsTerminal() ? Log::escaped(transfer.path) : transfer.path) + '\n');
  }
  console_.print("saved " + Log::escaped(transfer.path) + ": " + amountText(event) + " from " + transfer.ip +
                 speedText(event) + leftOutText(event.skipped) + '\n');
}

void TerminalReporter::printSent(const Transfer& transfer, const FinishedEvent& event) {
  if (isQuiet_) return;
  console_.print("sent " + Log::escaped(transfer.name) + ": " + amountText(event) + " to " + transfer.ip +
                 speedText(event) + '\n');
}

}  // namespace vesko
