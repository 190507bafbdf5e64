// The bytes of an incoming transfer, received into a real folder.

#include <algorithm>
#include <array>
#include <cerrno>

#include "Platform/files/DirectoryHandle.h"
#include "Platform/text/TextEncoding.h"
#include "VeskoKit/VeskoIncomingTransfer.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCheck.h"
#include "fuzz/support/ManualQueue.h"
#include "fuzz/support/MemorySocket.h"
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
    check(isValidUtf8(received), "a text is text");
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

void run(Input input) {
  static const Surroundings surroundings;
  const Options options(input.takeByte());
  listenToLog(options.isLogged);
  const auto observer = std::make_shared<Observer>();
  const auto downloads = surroundings.downloads();
  receive(input.rest(), options, downloads, observer);
  checkOutcome(*observer, options);
  checkDelivered(*observer, downloads);
  surroundings.checkUntouched();
}

}  // namespace
}  // namespace vesko::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  vesko::fuzz::run({bytes, length});
  return 0;
}
