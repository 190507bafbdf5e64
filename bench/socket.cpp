#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <semaphore>
#include <string>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncSocket.h"

namespace vesko {
namespace {

constexpr double noTimeout = -1;
constexpr std::int64_t mebibyte = 1024 * 1024;

/// Accepts one connection and reads pieces of a given length from it, each of which it echoes or counts.
class Server final : public GCDAsyncSocketDelegate {
 public:
  Server(std::uint64_t pieceLength, bool isEcho) : pieceLength_(pieceLength), isEcho_(isEcho) {}

  std::counting_semaphore<> pieces{0};  ///< that have arrived and were not echoed
  std::binary_semaphore isConnected{0};

  void socketDidAcceptNewSocket(GCDAsyncSocket& /*listener*/, std::shared_ptr<GCDAsyncSocket> newSocket) override {
    connection_ = std::move(newSocket);
    connection_->setDelegate(self);
    connection_->readDataToLength(pieceLength_, noTimeout, 0);
    isConnected.release();
  }

  void socketDidReadData(GCDAsyncSocket& socket, const Data& data, std::int64_t /*tag*/) override {
    socket.readDataToLength(pieceLength_, noTimeout, 0);
    isEcho_ ? socket.writeData(data, noTimeout, 0) : pieces.release();
  }

  std::weak_ptr<GCDAsyncSocketDelegate> self;

 private:
  const std::uint64_t pieceLength_;
  const bool isEcho_;
  std::shared_ptr<GCDAsyncSocket> connection_;
};

class Client final : public GCDAsyncSocketDelegate {
 public:
  std::binary_semaphore isAnswered{0};

  void socketDidReadData(GCDAsyncSocket& /*socket*/, const Data& /*data*/, std::int64_t /*tag*/) override {
    isAnswered.release();
  }
};

/// Two sockets that are connected over loopback, each on a queue of its own.
struct Connection {
  std::shared_ptr<Server> server;
  std::shared_ptr<Client> client = std::make_shared<Client>();
  std::shared_ptr<GCDAsyncSocket> listener;
  std::shared_ptr<GCDAsyncSocket> socket = GCDAsyncSocket::make(client, DispatchQueue::serial("client"));

  Connection(std::uint64_t pieceLength, bool isEcho) : server(std::make_shared<Server>(pieceLength, isEcho)) {
    server->self = server;
    listener = GCDAsyncSocket::make(server, DispatchQueue::serial("server"));
  }

  [[nodiscard]] bool open() const {
    SocketError error;
    if (!listener->acceptOnPort(0, error)) return false;
    if (!socket->connectToHost("127.0.0.1", listener->localPort(), -1, error)) return false;
    server->isConnected.acquire();
    return true;
  }
};

/// One byte there and back.
void socketRound(benchmark::State& state) {
  const Connection connection(1, true);
  if (!connection.open()) return state.SkipWithError("no connection");
  for (auto _ : state) {
    connection.socket->readDataToLength(1, noTimeout, 0);
    connection.socket->writeData(Data("x"), noTimeout, 0);
    connection.client->isAnswered.acquire();
  }
}
BENCHMARK(socketRound)->UseRealTime();

/// 1 MiB in memory to 1 MiB in memory, the next one under way while one is awaited.
void socketThroughput(benchmark::State& state) {
  const Connection connection(mebibyte, false);
  if (!connection.open()) return state.SkipWithError("no connection");
  const Data piece(std::string(mebibyte, 'x'));
  connection.socket->writeData(piece, noTimeout, 0);
  for (auto _ : state) {
    connection.socket->writeData(piece, noTimeout, 0);
    connection.server->pieces.acquire();
  }
  state.SetBytesProcessed(state.iterations() * mebibyte);
}
BENCHMARK(socketThroughput)->UseRealTime();

}  // namespace
}  // namespace vesko
