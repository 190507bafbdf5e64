#include "tests/support/Recorder.h"

namespace vesko {
namespace {

template <class... Numbers>
std::string progress(Numbers... numbers) {
  std::string text = "[progress";
  ((text += ' ' + std::to_string(numbers)), ...);
  return text;
}

}  // namespace

void Recorder::transferDidConnect(VeskoTransfer& /*transfer*/) { add("[connected]"); }
void Recorder::transferDidFinish(VeskoTransfer& /*transfer*/) { add("[finished]"); }
void Recorder::transferReserved(VeskoTransfer& /*transfer*/) { add("[reserved]"); }

void Recorder::transferDidProgress(VeskoTransfer& /*transfer*/, std::int64_t elementCount,
                                   std::int64_t finishedElements, std::uint64_t totalSize,
                                   std::uint64_t finishedBytes) {
  add(progress(elementCount, finishedElements, totalSize, finishedBytes) + "]");
}

void Recorder::incomingTransferDidStart(VeskoIncomingTransfer& /*transfer*/) { add("[start]"); }
void Recorder::incomingTransferDidFinish(VeskoIncomingTransfer& /*transfer*/) { add("[finished]"); }
void Recorder::incomingTransferReserved(VeskoIncomingTransfer& /*transfer*/) { add("[reserved]"); }

void Recorder::incomingTransferDidProgress(VeskoIncomingTransfer& /*transfer*/, std::uint64_t elementCount,
                                           std::uint64_t finishedElements, std::uint64_t totalSize,
                                           std::uint64_t finishedBytes, const std::optional<std::string>& currentName,
                                           const std::optional<std::string>& currentPath) {
  add(progress(elementCount, finishedElements, totalSize, finishedBytes) + " " + currentName.value_or("none") + " " +
      currentPath.value_or("none") + "]");
}

void Recorder::incomingTransferDidReceiveText(VeskoIncomingTransfer& /*transfer*/, const std::string& text) {
  add("[text " + text + "]");
}

void Recorder::incomingTransferDidSaveItems(VeskoIncomingTransfer& /*transfer*/, const std::string& path) {
  add("[saved " + path + "]");
}

void Recorder::transferDidEnd(VeskoTransfer& /*transfer*/, const VeskoTransferOutcome& outcome) { record(outcome); }

void Recorder::incomingTransferDidEnd(VeskoIncomingTransfer& /*transfer*/, const VeskoTransferOutcome& outcome) {
  record(outcome);
}

VeskoTransferOutcome Recorder::lastOutcome() const {
  const std::scoped_lock lock(mutex_);
  return lastOutcome_;
}

void Recorder::record(const VeskoTransferOutcome& outcome) {
  {
    const std::scoped_lock lock(mutex_);
    lastOutcome_ = outcome;
  }
  using Kind = VeskoTransferOutcome::Kind;
  std::string text = outcome.kind == Kind::finished ? "finished" : "cancelled";
  if (outcome.kind == Kind::failed) text = "failed " + std::string(nameOfFailureReason(outcome.reason));
  add("[outcome " + text + "]");
}

}  // namespace vesko
