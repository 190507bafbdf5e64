// The bytes of an incoming transfer, received into a real folder.

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

#include "Platform/files/DirectoryHandle.h"
#include "VeskoKit/DeliveryNames.h"
#include "VeskoKit/VeskoIncomingTransfer.h"
#include "fuzz/support/LogCheck.h"
#include "fuzz/support/ManualQueue.h"
#include "fuzz/support/MemorySocket.h"
#include "fuzz/support/StreamModel.h"
#include "fuzz/support/Surroundings.h"

namespace vesko::fuzz {
namespace {

enum class End { close, reset, timeOut, cancel };

/// The first byte of the input.
struct Options {
  explicit Options(std::uint8_t byte)
      : keepPartial((byte & 1) != 0),
        end(static_cast<End>(byte >> 1 & 3)),
        piece(std::array<std::size_t, 4>{~std::size_t{0}, 1, 3, 64}[byte >> 3 & 3]),
        isLogged((byte & 0xE0) == 0xE0) {}

  bool keepPartial;
  End end;
  std::size_t piece;
  bool isLogged;
};

class Observer final : public VeskoIncomingTransferDelegate, public VeskoTransferOutcomeDelegate {
 public:
  void incomingTransferDidStart(VeskoIncomingTransfer& /*transfer*/) override {
    check(!std::exchange(hasStarted, true), "a transfer starts once");
  }
  void incomingTransferDidFinish(VeskoIncomingTransfer& transfer) override {
    checkUnderWay();
    check(elements == transfer.elementCount, "a transfer finishes with its last element");
    check(!std::exchange(hasFinished, true), "a transfer finishes once");
  }
  void incomingTransferDidProgress(VeskoIncomingTransfer& transfer, std::uint64_t elementCount,
                                   std::uint64_t finishedElements, std::uint64_t /*totalSize*/,
                                   std::uint64_t finishedBytes, const std::optional<std::string>& /*currentName*/,
                                   const std::optional<std::string>& currentPath) override {
    checkUnderWay();
    check(finishedElements <= elementCount, "no more elements finish than there are");
    check(finishedBytes >= bytes, "finished bytes never become fewer");
    const bool isInside =
        currentPath.value_or("").empty() || currentPath->starts_with(transfer.currentBasePath() + "/");
    check(isInside, "what arrives is inside of the storage folder");
    elements = finishedElements;
    bytes = finishedBytes;
  }
  void incomingTransferDidReceiveText(VeskoIncomingTransfer& /*transfer*/, const std::string& received) override {
    checkUnderWay();
    text = received;
  }
  void incomingTransferDidSaveItems(VeskoIncomingTransfer& /*transfer*/, const std::string& path) override {
    checkUnderWay();
    check(!saved, "what arrived moves once");
    saved = path;
  }
  void incomingTransferDidEnd(VeskoIncomingTransfer& /*transfer*/, const VeskoTransferOutcome& result) override {
    checkUnderWay();
    outcome = result;
  }

  [[nodiscard]] bool isFinished() const { return outcome->kind == VeskoTransferOutcome::Kind::finished; }

  /// Where what arrived ought to be now; empty: nowhere.
  [[nodiscard]] std::string delivered() const { return isFinished() ? saved.value_or("") : outcome->keptPath; }

  bool hasStarted = false;
  bool hasFinished = false;
  std::uint64_t elements = 0;
  std::uint64_t bytes = 0;
  std::optional<std::string> text;
  std::optional<std::string> saved;
  std::optional<VeskoTransferOutcome> outcome;

 private:
  void checkUnderWay() const { check(hasStarted && !outcome, "everything is told between the start and the outcome"); }
};

SocketError errorOf(End end) {
  const auto code = end == End::close
                        ? make_error_code(SocketErrc::endOfStream)
                        : std::error_code(end == End::reset ? ECONNRESET : ETIMEDOUT, std::system_category());
  return {SocketError::Operation::read, code};
}

void receive(std::string_view stream, const Options& options, const std::string& downloads,
             const std::shared_ptr<Observer>& observer) {
  const auto queue = std::make_shared<ManualQueue>();
  std::weak_ptr<VeskoIncomingTransfer> receiving;
  std::weak_ptr<MemorySocket> open;
  const auto whenDry = [&] {
    if (options.end == End::cancel) {
      receiving.lock()->cancel();
    } else {
      open.lock()->end(errorOf(options.end));
    }
  };
  const auto socket = std::make_shared<MemorySocket>(stream, options.piece, whenDry);
  open = socket;
  VeskoIncomingTransferSettings settings;
  settings.downloadsFolder = downloads;
  settings.keepPartial = options.keepPartial;
  settings.outcomeDelegate = observer;
  const auto transfer = VeskoIncomingTransfer::make(socket, "key", observer, queue, settings);
  receiving = transfer;
  while (socket->step()) queue->drain();
  queue->drain();
  check(observer->outcome.has_value() && transfer->hasEnded(), "every transfer has an outcome");
  check(!transfer->socket() && !transfer->currentFile(), "a transfer that has ended holds nothing");
}

void checkOutcome(const Observer& observer, const Options& options) {
  const auto& outcome = *observer.outcome;
  check(observer.hasFinished == observer.isFinished(), "finishing and the outcome tell the same");
  check(observer.isFinished() || !observer.saved, "a transfer that failed has saved nothing");
  check(outcome.keptPath.empty() || options.keepPartial, "what is partial is kept only where that was asked for");
  check(observer.isFinished() || !outcome.description().empty(), "a failure is described");
  check(outcome.dropped.size() == std::min(outcome.droppedCount, VeskoTransferOutcome::maximumListed),
        "what was dropped is listed, up to a limit");
}

/// Looks at what is in the downloads folder, takes it away, and looks again.
void checkDelivered(const Observer& observer, const std::string& downloads) {
  const auto delivered = observer.delivered();
  const auto name = delivered.empty() ? delivered : delivered.substr(downloads.size() + 1);
  check(delivered.empty() || delivered == downloads + "/" + name, "what arrived is in the downloads folder");
  std::error_code error;
  const auto folder = DirectoryHandle::open(downloads, error);
  const auto checkContents = [&](std::size_t count, const char* property) {
    const auto names = folder->contents(error);
    check(!error && names.size() == count, property, [&] { return names.empty() ? "" : names.front(); });
  };
  checkContents(delivered.empty() ? 1 : 2, "nothing but what arrived is in the downloads folder");
  if (!name.empty()) folder->removeTree(name, error);
  check(!error, "what arrived can be removed", [&] { return error.message(); });
  checkContents(1, "what was told of is what arrived");
}

/// What is at `path` and below it.
Tree without(const std::string& path, const Tree& tree) {
  Tree below;
  for (const auto& [other, body] : tree) {
    if (other.size() >= path.size()) below[other.substr(path.size())] = body;
  }
  return below;
}

void checkContents(const Observer& observer, std::string_view stream, const std::string& downloads) {
  const auto expected = contentsOf(stream);
  const auto delivered = observer.delivered();
  check(observer.text == expected.text, "a text arrives as it was sent");
  check((expected.topLevelEntries == 0) == delivered.empty(), "something arrives where something was sent");
  if (delivered.empty()) return;
  Tree found;
  readTree(AT_FDCWD, delivered.c_str(), "", found);
  const auto& path = std::next(expected.tree.begin())->first;
  // What has the name of a storage folder would be swept away if it were not inside another.
  const bool isInside = expected.topLevelEntries > 1 || DeliveryNames::isStorageName(path.substr(1));
  if (isInside) return check(found == expected.tree, "what arrived is what was sent");
  const auto* const number = path == std::string("/") + Surroundings::earlierName ? " (2)" : "";
  check(delivered == downloads + path + number, "a single entry keeps its name, unless that is taken");
  check(found == without(path, expected.tree), "what arrived is what was sent");
}

void run(Input input) {
  static const Surroundings surroundings;
  const Options options(input.takeByte());
  listenToLog(options.isLogged);
  const auto observer = std::make_shared<Observer>();
  const auto downloads = surroundings.downloads();
  receive(input.rest(), options, downloads, observer);
  checkOutcome(*observer, options);
  if (observer->isFinished() && observer->outcome->droppedCount == 0) checkContents(*observer, input.rest(), downloads);
  checkDelivered(*observer, downloads);
  surroundings.checkUntouched();
}

}  // namespace
}  // namespace vesko::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  vesko::fuzz::run({bytes, length});
  return 0;
}
