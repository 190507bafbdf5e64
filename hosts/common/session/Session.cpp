#include "hosts/common/session/Session.h"

#include <algorithm>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/text/TextEncoding.h"
#include "Platform/user/NSApp.h"
#include "hosts/common/control/ControlServer.h"
#include "hosts/common/events/PeerObserver.h"
#include "hosts/common/events/TransferObserver.h"
#include "hosts/common/session/Announcer.h"

namespace vesko {
namespace {

/// Seconds. On a local network a machine answers within milliseconds; after this time it is not there.
constexpr double connectTimeout = 10;

/// Seconds. Longer than the 60 seconds that the receiving user has to answer `--ask`.
constexpr double stallTimeout = 90;

/// Shows no alert and does not quit: the host hears of a failed endpoint by an event, and the service has to continue
/// to report all that failed.
class QuietApplication final : public NSApp {
 public:
  void runModal(const std::string& /*messageText*/) override {}
  void terminate() override {}
};

/// The first chosen item and the number of the others, "Photos and 2 more".
std::string nameOfItems(const VeskoItems& items) {
  if (items.empty()) return {};
  // A chosen item is at the top. What is inside a chosen folder has a slash in its name.
  const auto isChosen = [](const auto& item) { return item->name().find('/') == std::string::npos; };
  const auto others = std::count_if(items.begin(), items.end(), isChosen) - 1;
  return items.front()->name() + (others > 0 ? " and " + std::to_string(others) + " more" : "");
}

/// The picture of a machine in the form of `VeskoPeer::avatar`; empty for an unknown machine.
std::string avatarIn(const VeskoServer& server, const std::string& key) {
  const auto peer = server.peerWithKey(key);
  return peer ? peer->avatar() : std::string();
}

}  // namespace

Session::Session(std::shared_ptr<EventSink> sink, SessionSettings settings, std::shared_ptr<Clock> clock)
    : hub_(std::make_shared<EventHub>(std::move(sink))),
      settings_(std::move(settings)),
      server_(std::make_shared<VeskoServer>(settings_.port, settings_.port, clock)),
      peerObserver_(std::make_shared<PeerObserver>(hub_)),
      observer_(std::make_shared<TransferObserver>(hub_, server_, clock, settings_.incomingLimit)),
      admission_(std::make_shared<Admission>(
          settings_.admission, hub_,
          [observer = observer_](const VeskoIncomingTransfer& transfer) { return observer->idOf(transfer); },
          server_->incomingDispatchQueue())),
      announcer_(std::make_shared<Announcer>(server_, clock)) {
  server_->downloadsFolder = settings_.downloadsFolder;
  server_->keepPartial = settings_.keepPartial;
  server_->maximumIncomingSize = settings_.maximumSize;
  server_->application = std::make_shared<QuietApplication>();
  server_->setDelegate(peerObserver_);
  server_->setIncomingDelegate(observer_);
  server_->setIncomingOutcomeDelegate(observer_);
  server_->setIncomingGuard(admission_);
}

Session::~Session() {
  leave();
  // Transfers hold the hub too and may outlive this object for a moment. Closing the hub ends their events.
  server_->setDelegate(nullptr);
  hub_->close();
}

bool Session::startReceiving() {
  // Hellos of others may arrive as soon as the first endpoint is open. Their events are kept back, because "ready" or
  // the failures must come first.
  hub_->hold();
  server_->startServer();
  if (auto failures = startupFailures(); !failures.empty()) {
    hub_->release(std::move(failures));
    return false;
  }
  control_ = std::make_shared<ControlServer>(
      hub_, ControlActions{[announcer = announcer_] { announcer->announce(); },
                           [server = server_](const std::string& key) { return avatarIn(*server, key); },
                           [announcer = announcer_] { return announcer->heardFor(); }});
  // Before "ready", so that a program that waits for this event can use the control channel.
  control_->listen(settings_.port, controlObstacle_);
  hub_->release({ReadyEvent{server_->localUdpPort, server_->boundTcpPort(), server_->boundHttpPort(),
                            settings_.downloadsFolder}});
  announcer_->announce();
  announcer_->followInterfaces();
  return true;
}

bool Session::startLooking() {
  server_->startDiscovery();
  for (auto& failure : startupFailures()) hub_->publish(std::move(failure));
  if (!server_->failedEndpoints().empty()) return false;
  announcer_->announce();
  return true;
}

std::vector<Event> Session::startupFailures() const {
  std::vector<Event> failures;
  for (const auto& failed : server_->failedEndpoints()) {
    const auto port = static_cast<std::uint16_t>(settings_.port + (failed.endpoint == "http" ? 1 : 0));
    failures.emplace_back(StartupFailureEvent{failed.endpoint, port, failed.message, failed.error.message()});
  }
  return failures;
}

std::string Session::avatarOf(const std::string& key) const { return avatarIn(*server_, key); }

void Session::announce() { announcer_->announce(); }

void Session::leave() { announcer_->leave(); }

PreparedTransfer Session::prepare(const std::vector<std::string>& paths) {
  const TransferId id = observer_->nextId();
  std::vector<VeskoSkippedElement> leftOut;
  VeskoItems items = VeskoTransfer::itemsForPaths(paths, &leftOut);
  observer_->noteLeftOut(id, TransferDirection::out, leftOut);
  const bool looksLikeText =
      std::ranges::any_of(leftOut, [](const auto& one) { return one.error == VeskoItemErrc::textName; });
  return {id, nameOfItems(items), std::move(items), looksLikeText};
}

PreparedTransfer Session::prepareText(std::string text) {
  return {observer_->nextId(), "a text", VeskoTransfer::itemsForText(std::move(text))};
}

VeskoFailureReason Session::reasonAgainstText(std::string_view text) noexcept {
  if (text.size() > VeskoText::maximumLength) return VeskoFailureReason::limit;
  return isValidUtf8(text) ? VeskoFailureReason::none : VeskoFailureReason::invalidText;
}

void Session::answer(TransferId transfer, bool accepted) { admission_->answer(transfer, accepted); }

void Session::cancelAll() { observer_->cancelAll(); }

void Session::send(PreparedTransfer transfer, const PeerView& peer) {
  auto record = std::make_shared<VeskoPeer>(peer.ip, peer.ip, peer.port, peer.systemSignature, VeskoPeer::TimePoint());
  const auto outgoing =
      std::make_shared<VeskoTransfer>(std::move(transfer.items), std::move(record),
                                      DispatchQueue::serial("transfer", server_->broadcastDispatchQueue()->clock()));
  outgoing->connectTimeout = connectTimeout;
  outgoing->stallTimeout = stallTimeout;
  outgoing->setDelegate(observer_);
  outgoing->setOutcomeDelegate(observer_);
  observer_->noteStarted(transfer.id, std::move(transfer.name), *outgoing);
  server_->startTransfer(outgoing);
}

}  // namespace vesko
