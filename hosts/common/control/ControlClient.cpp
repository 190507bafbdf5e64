#include "hosts/common/control/ControlClient.h"

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/LocalSocket.h"
#include "Platform/text/Numbers.h"
#include "hosts/common/control/ControlFolder.h"
#include "hosts/common/control/ControlMessage.h"
#include "hosts/common/events/EventJson.h"

namespace vesko {
namespace {

std::shared_ptr<LocalConnection> connectToHost(std::uint16_t port) {
  std::error_code error;
  return LocalConnection::connect(controlPath(port), DispatchQueue::serial("control client"), error);
}

/// The port whose socket has this path; none for any other file.
std::optional<std::uint16_t> portOf(const std::filesystem::path& path) {
  const auto port = wholeNumber<std::uint16_t>(path.stem().native());
  return port && *port != 0 && path == controlPath(*port) ? port : std::nullopt;
}

}  // namespace

/// Shared by the client and the tasks of its connection, which may outlive it. The lock is held while `sink` and
/// `onEnd` are called, so that neither is called after the client's destructor.
struct ControlClient::Shared {
  std::mutex mutex;
  std::condition_variable changed;
  std::optional<ControlPeers> known;    // the answer to `watch`
  std::optional<ControlAvatar> avatar;  // the last answer to `avatarOf`
  bool isAnswered = false;              // the answer to `watch` has arrived
  bool hasEnded = false;
  std::shared_ptr<EventSink> sink;
  std::function<void()> onEnd;

  void take(std::string_view line) {
    // Lines may be long, so they are parsed without the lock. `isAnswered` is only written by these tasks, one at a
    // time.
    if (isAnswered) {
      auto event = parsePeerEvent(line);
      auto picture = event ? std::nullopt : parseControlAvatar(line);
      const std::scoped_lock lock(mutex);
      if (event && sink != nullptr) sink->publish(std::move(*event));
      if (picture) avatar = std::move(picture);
      changed.notify_all();
    } else if (auto answer = parseControlPeers(line)) {
      const std::scoped_lock lock(mutex);
      known = std::move(answer);
      isAnswered = true;
      changed.notify_all();
    }
  }

  void end() {
    const std::scoped_lock lock(mutex);
    hasEnded = true;
    changed.notify_all();
    if (isAnswered && onEnd) onEnd();
  }

  /// Requires: the lock is held.
  void forget() {
    sink = nullptr;
    onEnd = nullptr;
  }
};

ControlClient::ControlClient(std::shared_ptr<LocalConnection> connection)
    : connection_(std::move(connection)), shared_(std::make_shared<Shared>()) {}

ControlClient::~ControlClient() {
  connection_->close();
  const std::scoped_lock lock(shared_->mutex);
  shared_->forget();
}

std::unique_ptr<ControlClient> ControlClient::connect(std::uint16_t port) {
  auto connection = connectToHost(port);
  return connection ? std::unique_ptr<ControlClient>(new ControlClient(std::move(connection))) : nullptr;
}

std::vector<std::uint16_t> ControlClient::runningPorts() {
  std::vector<std::uint16_t> ports;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(controlFolder(), error), end; !error && entry != end;
       entry.increment(error)) {
    // A host that was killed leaves its socket file. Only a connection shows that a host is there.
    const auto port = portOf(entry->path());
    if (port && connectToHost(*port)) ports.push_back(*port);
  }
  std::ranges::sort(ports);
  return ports;
}

std::optional<ControlPeers> ControlClient::watch(std::shared_ptr<EventSink> sink, std::function<void()> onEnd) {
  shared_->sink = std::move(sink);
  shared_->onEnd = std::move(onEnd);
  connection_->start(
      LocalConnection::maximumLineLength, [shared = shared_](const std::string& line) { shared->take(line); },
      [shared = shared_] { shared->end(); });
  connection_->send(controlLine({ControlRequest::Kind::watch}));
  std::unique_lock lock(shared_->mutex);
  shared_->changed.wait_for(lock, patience, [this] { return shared_->isAnswered || shared_->hasEnded; });
  // An answer that comes too late must not reach a sink that the caller no longer expects to be used.
  if (!shared_->isAnswered) shared_->forget();
  return std::exchange(shared_->known, std::nullopt);
}

std::optional<std::string> ControlClient::avatarOf(const std::string& key) {
  connection_->send(controlLine({ControlRequest::Kind::avatar, key}));
  std::unique_lock lock(shared_->mutex);
  const auto isThere = [&] { return shared_->avatar && shared_->avatar->key == key; };
  shared_->changed.wait_for(lock, patience, [&] { return isThere() || shared_->hasEnded; });
  if (!isThere()) return std::nullopt;
  return std::exchange(shared_->avatar, std::nullopt)->avatar;
}

void ControlClient::announce() { connection_->send(controlLine({ControlRequest::Kind::announce})); }

}  // namespace vesko
