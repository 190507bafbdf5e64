#include <array>
#include <filesystem>
#include <utility>

#include "Platform/files/PrivateFolder.h"
#include "Platform/process/SystemError.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/LocalSocket.h"
#include "Platform/sockets/LocalSocketCalls.h"
#include "Platform/sockets/LocalStream.h"

namespace vesko {
namespace {

/// Accepted in one go before other work on the queue gets its turn.
constexpr int acceptBatch = 64;

/// How long accepting rests when the process has no descriptor left: the connections wait in the system's backlog.
constexpr std::chrono::milliseconds acceptPause{100};

/// Accepts on the queue for as long as it has an owner.
class Acceptor final : public std::enable_shared_from_this<Acceptor> {
 public:
  using OnConnection = std::function<void(std::shared_ptr<LocalConnection>)>;

  Acceptor(FileDescriptor descriptor, std::shared_ptr<DispatchQueue> queue, OnConnection onConnection)
      : queue_(std::move(queue)), onConnection_(std::move(onConnection)), descriptor_(std::move(descriptor)) {}

  [[nodiscard]] std::error_code start() {
    std::error_code error;
    source_ = queue_->makeSource(descriptor_.get(), error);
    if (!error) acceptLater();
    return error;
  }

 private:
  void acceptLater() {
    queue_->async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->accept();
    });
  }

  void accept() {
    std::error_code error;
    for (int i = 0; i < acceptBatch && error != std::errc::operation_would_block; ++i) {
      FileDescriptor accepted = LocalSocketCalls::accept(descriptor_.get(), error);
      if (isShortageOfResources(error)) {
        rest();
        return;
      }
      if (accepted) handOver(std::move(accepted));
    }
    source_->whenReadable([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->accept();
    });
  }

  void rest() {
    alarm_ = queue_->clock()->callAfter(acceptPause, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->acceptLater();
    });
  }

  void handOver(FileDescriptor accepted) {
    std::error_code error;
    auto connection = LocalStream::make(std::move(accepted), queue_, error);
    if (connection) onConnection_(std::move(connection));
  }

  const std::shared_ptr<DispatchQueue> queue_;
  const OnConnection onConnection_;
  FileDescriptor descriptor_;
  std::unique_ptr<DispatchSource> source_;  // goes before the descriptor
  std::unique_ptr<Alarm> alarm_;
};

/// The name under which a socket is found.
struct Entry {
  PrivateFolder folder;
  std::string name;
  FileIdentity identity;
};

class PathListener final : public LocalListener {
 public:
  PathListener(Entry entry, std::shared_ptr<Acceptor> acceptor)
      : entry_(std::move(entry)), acceptor_(std::move(acceptor)) {}

  ~PathListener() override {
    const auto lock = entry_.folder.lock();
    std::error_code error;
    // The socket is still open, so no other file can have its inode.
    if (entry_.folder.identity(entry_.name, error) == entry_.identity && !error) entry_.folder.remove(entry_.name);
  }

 private:
  const Entry entry_;
  const std::shared_ptr<Acceptor> acceptor_;
};

/// Why `path` cannot be taken; none when nobody listens there.
std::error_code reasonAgainstTaking(const std::string& path) {
  std::error_code error;
  const FileDescriptor connection = LocalSocketCalls::connect(path, error);
  if (error == std::errc::connection_refused || error == std::errc::no_such_file_or_directory) return {};
  const bool isFull = error == std::errc::operation_would_block;
  return connection || isFull ? std::make_error_code(std::errc::address_in_use) : error;
}

/// Listens under another name first, so that whoever finds the socket at `path` is served.
FileDescriptor listenAt(const std::string& path, Entry& entry, std::error_code& error) {
  const auto lock = entry.folder.lock();
  error = reasonAgainstTaking(path);
  if (error) return {};
  const std::string temporaryName = entry.name + ".new";
  entry.folder.remove(temporaryName);
  FileDescriptor descriptor = LocalSocketCalls::listen(path + ".new", error);
  if (!error) entry.identity = entry.folder.identity(temporaryName, error);
  if (!error) entry.folder.rename(temporaryName, entry.name, error);
  if (error) {
    entry.folder.remove(temporaryName);
    descriptor.reset();
  }
  return descriptor;
}

}  // namespace

std::unique_ptr<LocalListener> LocalListener::listen(const std::string& path, std::shared_ptr<DispatchQueue> queue,
                                                     std::function<void(std::shared_ptr<LocalConnection>)> onConnection,
                                                     std::error_code& error) {
  const std::filesystem::path whole(path);
  auto folder = PrivateFolder::open(whole.parent_path().string(), error);
  if (!folder) return nullptr;
  Entry entry{std::move(*folder), whole.filename().string(), {}};
  FileDescriptor descriptor = listenAt(path, entry, error);
  if (error) return nullptr;
  auto acceptor = std::make_shared<Acceptor>(std::move(descriptor), std::move(queue), std::move(onConnection));
  auto listener = std::make_unique<PathListener>(std::move(entry), acceptor);
  error = acceptor->start();
  if (error) return nullptr;
  return listener;
}

}  // namespace vesko
