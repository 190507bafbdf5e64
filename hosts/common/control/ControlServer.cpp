#include "hosts/common/control/ControlServer.h"

#include <string>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/LocalSocket.h"
#include "hosts/common/control/ControlFolder.h"
#include "hosts/common/control/ControlMessage.h"
#include "hosts/common/events/EventJson.h"

namespace vesko {
namespace {

std::string peersLineOf(const SessionState& state, std::chrono::duration<double> heardFor) {
  ControlPeers known{{}, heardFor};
  for (const auto& [key, peer] : state.peers()) known.peers.push_back(peer);
  return controlPeersLine(known);
}

bool isOfPeer(const Event& event) {
  return std::holds_alternative<PeerAppearedEvent>(event) || std::holds_alternative<PeerUpdatedEvent>(event) ||
         std::holds_alternative<PeerDisappearedEvent>(event);
}

}  // namespace

/// One connected program. Used on the server's queue, except `publish`.
class ControlServer::Client final : public EventSink, public std::enable_shared_from_this<Client> {
 public:
  Client(std::weak_ptr<ControlServer> server, std::shared_ptr<LocalConnection> connection)
      : server_(std::move(server)), connection_(std::move(connection)) {}

  void start() {
    connection_->start(
        controlRequestLimit,
        [weak = weak_from_this()](const std::string& line) {
          if (const auto self = weak.lock()) self->take(line);
        },
        [weak = weak_from_this()] {
          if (const auto self = weak.lock()) self->leave();
        });
  }

  /// Sends an error line and closes the connection once it is sent.
  void turnAway(std::string_view message) {
    connection_->send(controlErrorLine(message));
    connection_->closeAfterSending();
  }

  void publish(Event event) override {
    if (isOfPeer(event)) connection_->send(jsonLine(event));
  }

 private:
  void take(std::string_view line) {
    const auto server = server_.lock();
    if (!server) return;
    const auto request = parseControlRequest(line);
    if (!request) return refuse("not a request of version " + std::to_string(controlVersion));
    // `heardFor` is read before the table, so that the table holds at least the answers of that time.
    const auto sendPeers = [this, heardFor = server->actions_.heardFor()](const SessionState& state) {
      connection_->send(peersLineOf(state, heardFor));
    };
    switch (request->kind) {
      case ControlRequest::Kind::announce:
        server->actions_.announce();
        return connection_->send(controlAnnouncedLine());
      case ControlRequest::Kind::avatar:
        return connection_->send(controlAvatarLine({request->key, server->actions_.avatarOf(request->key)}));
      case ControlRequest::Kind::peers:
        return server->hub_->inspect(sendPeers);
      case ControlRequest::Kind::watch:
        // A second subscription would send each event twice.
        if (std::exchange(isWatching_, true)) return refuse("watching already");
        return server->hub_->subscribe(weak_from_this(), sendPeers);
    }
  }

  void refuse(std::string_view message) {
    turnAway(message);
    leave();
  }

  void leave() {
    if (const auto server = server_.lock()) server->remove(*this);
  }

  const std::weak_ptr<ControlServer> server_;
  const std::shared_ptr<LocalConnection> connection_;
  bool isWatching_ = false;
};

ControlServer::ControlServer(std::shared_ptr<EventHub> hub, ControlActions actions)
    : hub_(std::move(hub)), actions_(std::move(actions)), queue_(DispatchQueue::serial("control")) {}

ControlServer::~ControlServer() = default;

void ControlServer::listen(std::uint16_t port, std::error_code& error) {
  const auto onConnection = [weak = weak_from_this()](std::shared_ptr<LocalConnection> connection) {
    if (const auto self = weak.lock()) self->accept(std::move(connection));
  };
  listener_ = LocalListener::listen(controlPath(port), queue_, onConnection, error);
}

void ControlServer::accept(std::shared_ptr<LocalConnection> connection) {
  auto client = std::make_shared<Client>(weak_from_this(), std::move(connection));
  if (clients_.size() >= maximumConnections) {
    client->turnAway("too many programs are connected");
    return;
  }
  client->start();
  clients_.push_back(std::move(client));
}

void ControlServer::remove(const Client& client) {
  std::erase_if(clients_, [&](const auto& any) { return any.get() == &client; });
}

}  // namespace vesko
