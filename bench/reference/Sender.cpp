#include "bench/reference/Sender.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "bench/reference/Descriptor.h"
#include "bench/reference/Listing.h"
#include "bench/reference/Network.h"
#include "bench/reference/Stream.h"

namespace vesko::reference {
namespace {

constexpr std::uint64_t sendLength = 8 << 20;  ///< bytes that one call hands to the network at most

class Sender {
 public:
  Sender(std::uint16_t port, const std::string& path) : listing_(path), socket_(connectTo(port)) {}

  void run() {
    putNumber(listing_.elementCount);
    putNumber(listing_.totalSize);
    for (const Folder& folder : listing_.folders) putFolder(folder);
    flush(0);
  }

 private:
  void flush(int flags) {
    std::size_t sent = 0;
    while (sent < used_) {
      sent += static_cast<std::size_t>(check(::send(socket_.get(), &buffer_[sent], used_ - sent, flags), "send"));
    }
    used_ = 0;
  }

  void put(const void* bytes, std::size_t length) {
    if (used_ + length > bufferSize) flush(0);
    std::memcpy(&buffer_[used_], bytes, length);
    used_ += length;
  }

  void putNumber(std::uint64_t number) { put(&number, sizeof number); }

  void putHeader(const std::string& name, std::uint64_t size) {
    put(name.c_str(), name.size() + 1);
    putNumber(size);
  }

  void putFolder(const Folder& folder) {
    if (!folder.name.empty()) putHeader(folder.name, folderMark);
    const Descriptor opened(open(folder.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), folder.path);
    const std::string prefix = folder.name.empty() ? "" : folder.name + '/';
    for (const File& file : folder.files) {
      putHeader(prefix + file.name, file.size);
      if (file.size == 0) continue;
      const Descriptor body(openat(opened.get(), file.name.c_str(), O_RDONLY | O_CLOEXEC), file.name);
      file.size < zeroCopySize ? gather(body.get(), file) : sendBody(body.get(), file);
    }
  }

  void gather(int body, const File& file) {
    if (used_ + file.size > bufferSize) flush(0);
    const ssize_t length = check(read(body, &buffer_[used_], file.size), file.name);
    if (static_cast<std::uint64_t>(length) != file.size) throw std::runtime_error(file.name + " has changed");
    used_ += file.size;
  }

  void sendBody(int body, const File& file) {
    flush(MSG_MORE);
    for (std::uint64_t rest = file.size; rest > 0;) {
      const auto sent = check(sendfile(socket_.get(), body, nullptr, std::min(rest, sendLength)), file.name);
      if (sent == 0) throw std::runtime_error(file.name + " has changed");
      rest -= static_cast<std::uint64_t>(sent);
    }
  }

  Listing listing_;
  Descriptor socket_;
  std::array<char, bufferSize> buffer_{};
  std::size_t used_ = 0;
};

}  // namespace

void send(std::uint16_t port, const std::string& path) { Sender(port, path).run(); }

}  // namespace vesko::reference
