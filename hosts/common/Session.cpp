#include "hosts/common/Session.h"

#include <algorithm>
#include <utility>

#include "Platform/DispatchQueue.h"
#include "Platform/NSApp.h"
#include "Platform/TextEncoding.h"
#include "hosts/common/TransferObserver.h"

namespace vesko {
namespace {

/// The events tell the host what an alert would; the service is to go on and to list the endpoint as failed.
class QuietApplication final : public NSApp {
 public:
  void runModal(const std::string& /*messageText*/) override {}
  void terminate() override {}
};

/// The first chosen item, and how many were chosen besides.
std::string nameOfItems(const VeskoItems& items) {
  if (items.empty()) return {};
  const auto isChosen = [](const auto& item) { return item->name().find('/') == std::string::npos; };
  const auto others = std::count_if(items.begin(), items.end(), isChosen) - 1;
  return items.front()->name() + (others > 0 ? " and " + std::to_string(others) + " more" : "");
}

}  // namespace

Session::Session(std::shared_ptr<EventSink> sink, SessionSettings settings, std::shared_ptr<Clock> clock)
    : sink_(std::move(sink)),
      settings_(std::move(settings)),
      server_(std::make_shared<VeskoServer>(clock)),
      observer_(std::make_shared<TransferObserver>(sink_, server_, clock, settings_.incomingLimit)) {
  server_->localTcpPort = settings_.port;
  server_->downloadsFolder = settings_.downloadsFolder;
  server_->keepPartial = settings_.keepPartial;
  server_->application = std::make_shared<QuietApplication>();
  server_->setIncomingDelegate(observer_);
  server_->setIncomingOutcomeDelegate(observer_);
}

Session::~Session() { observer_->close(); }

bool Session::startReceiving() {
  server_->startServer();
  for (const auto& failed : server_->failedEndpoints()) {
    sink_->publish(StartupFailureEvent{failed.endpoint, settings_.port, failed.message, failed.error.message()});
  }
  if (!server_->failedEndpoints().empty()) return false;
  sink_->publish(ReadyEvent{server_->boundTcpPort(), settings_.downloadsFolder});
  return true;
}

PreparedTransfer Session::prepare(const std::vector<std::string>& paths) {
  const TransferId id = observer_->nextId();
  std::vector<VeskoSkippedElement> leftOut;
  VeskoItems items = VeskoTransfer::itemsForPaths(paths, &leftOut);
  observer_->noteLeftOut(id, TransferDirection::out, leftOut);
  return {id, nameOfItems(items), std::move(items)};
}

PreparedTransfer Session::prepareText(std::string text) {
  return {observer_->nextId(), "a text", VeskoTransfer::itemsForText(std::move(text))};
}

VeskoFailureReason Session::reasonAgainstText(std::string_view text) noexcept {
  if (text.size() > VeskoText::maximumLength) return VeskoFailureReason::limit;
  return isValidUtf8(text) ? VeskoFailureReason::none : VeskoFailureReason::invalidText;
}

void Session::cancelAll() { observer_->cancelAll(); }

void Session::send(PreparedTransfer transfer, const PeerAddress& peer) {
  auto record = std::make_shared<VeskoPeer>(peer.ip, peer.ip, peer.port, std::string(), VeskoPeer::TimePoint());
  const auto outgoing =
      std::make_shared<VeskoTransfer>(std::move(transfer.items), std::move(record), DispatchQueue::serial("transfer"));
  outgoing->setDelegate(observer_);
  outgoing->setOutcomeDelegate(observer_);
  observer_->noteStarted(transfer.id, std::move(transfer.name), *outgoing);
  server_->startTransfer(outgoing);
}

}  // namespace vesko
