#include <filesystem>
#include <utility>

#include "Platform/files/DirectoryHandle.h"
#include "Platform/sockets/AcceptLoop.h"
#include "Platform/sockets/LocalSocket.h"
#include "Platform/sockets/SocketCalls.h"

namespace vesko {
namespace {

/// The name under which a socket is found.
struct Entry {
  std::shared_ptr<DirectoryHandle> folder;
  std::string name;
  FileIdentity identity;
};

class PathListener final : public LocalListener {
 public:
  PathListener(Entry entry, std::shared_ptr<AcceptLoop> acceptLoop)
      : entry_(std::move(entry)), acceptLoop_(std::move(acceptLoop)) {}

  ~PathListener() override {
    const auto lock = entry_.folder->lock();
    std::error_code error;
    const FileIdentity found = entry_.folder->attributes(entry_.name, false, error).identity;
    // The socket is still open, so no other file can have its inode.
    if (!error && found == entry_.identity) entry_.folder->removeFile(entry_.name, error);
  }

 private:
  const Entry entry_;
  const std::shared_ptr<AcceptLoop> acceptLoop_;
};

/// Why `path` cannot be taken; none when nobody listens there.
std::error_code reasonAgainstTaking(const std::string& path) {
  std::error_code error;
  const FileDescriptor connection = SocketCalls::connectLocal(path, error);
  if (error == std::errc::connection_refused || error == std::errc::no_such_file_or_directory) return {};
  const bool isFull = error == std::errc::operation_would_block;
  return connection || isFull ? std::make_error_code(std::errc::address_in_use) : error;
}

/// Listens under a temporary name and then renames the socket, so that a socket at `path` always accepts connections.
FileDescriptor listenAt(const std::string& path, Entry& entry, std::error_code& error) {
  const auto lock = entry.folder->lock();
  error = reasonAgainstTaking(path);
  if (error) return {};
  const std::string temporaryName = entry.name + ".new";
  std::error_code ignored;  // mostly, nothing is there
  entry.folder->removeFile(temporaryName, ignored);
  FileDescriptor descriptor = SocketCalls::listenLocal(path + ".new", error);
  if (!error) entry.identity = entry.folder->attributes(temporaryName, false, error).identity;
  if (!error) entry.folder->replace(temporaryName, entry.name, error);
  if (error) {
    entry.folder->removeFile(temporaryName, ignored);
    descriptor.reset();
  }
  return descriptor;
}

}  // namespace

std::unique_ptr<LocalListener> LocalListener::listen(const std::string& path, std::shared_ptr<DispatchQueue> queue,
                                                     std::function<void(std::shared_ptr<LocalConnection>)> onConnection,
                                                     std::error_code& error) {
  const std::filesystem::path whole(path);
  Entry entry{DirectoryHandle::openPrivate(whole.parent_path().string(), error), whole.filename().string(), {}};
  if (error) return nullptr;
  FileDescriptor descriptor = listenAt(path, entry, error);
  if (error) return nullptr;
  const auto adopt = [queue, onConnection = std::move(onConnection)](FileDescriptor accepted, const std::string&) {
    std::error_code failure;
    if (!SocketCalls::isOfUser(accepted.get())) return;
    auto connection = LocalConnection::over(std::move(accepted), queue, failure);
    if (connection) onConnection(std::move(connection));
  };
  auto acceptLoop = AcceptLoop::make(std::move(descriptor), queue, adopt, error);
  auto listener = std::make_unique<PathListener>(std::move(entry), acceptLoop);
  if (error) return nullptr;
  acceptLoop->start();
  return listener;
}

}  // namespace vesko
