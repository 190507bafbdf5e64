#include "bench/reference/Receiver.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "bench/reference/Descriptor.h"
#include "bench/reference/Network.h"
#include "bench/reference/Stream.h"

namespace vesko::reference {
namespace {

constexpr std::uint64_t pipeLength = 1 << 20;

void writeAll(int descriptor, const char* bytes, std::size_t length, std::string_view what) {
  while (length > 0) {
    const auto written = static_cast<std::size_t>(check(write(descriptor, bytes, length), what));
    bytes += written;
    length -= written;
  }
}

class Receiver {
 public:
  Receiver(std::uint16_t port, const std::string& path)
      : root_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), path), socket_(acceptOne(port)) {
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC), "pipe2");
    outlet_ = Descriptor(ends[0], "pipe2");
    inlet_ = Descriptor(ends[1], "pipe2");
    check(fcntl(inlet_.get(), F_SETPIPE_SZ, static_cast<int>(pipeLength)), "F_SETPIPE_SZ");
  }

  void run() {
    const std::uint64_t elementCount = takeNumber();
    takeNumber();  // the total size is for those who show progress
    for (std::uint64_t index = 0; index < elementCount; ++index) takeElement();
  }

 private:
  [[nodiscard]] std::size_t available() const { return end_ - begin_; }

  /// Reads until there are `length` bytes, at most `bufferSize`, in the buffer.
  void require(std::size_t length) {
    while (available() < length) fill();
  }

  void fill() {
    if (begin_ > 0) {
      std::memmove(buffer_.data(), &buffer_[begin_], available());
      end_ = available();
      begin_ = 0;
    }
    const auto length = check(recv(socket_.get(), &buffer_[end_], bufferSize - end_, 0), "recv");
    if (length == 0) throw std::runtime_error("the stream is cut short");
    end_ += static_cast<std::size_t>(length);
  }

  std::uint64_t takeNumber() {
    std::uint64_t number = 0;
    require(sizeof number);
    std::memcpy(&number, &buffer_[begin_], sizeof number);
    begin_ += sizeof number;
    return number;
  }

  std::string takeName() {
    std::size_t searched = 0;
    while (true) {
      const char* const start = buffer_.data() + begin_;
      if (const void* found = std::memchr(start + searched, 0, available() - searched)) {
        std::string name(start, static_cast<const char*>(found));
        begin_ += name.size() + 1;
        return name;
      }
      searched = available();
      fill();
    }
  }

  void takeElement() {
    const std::string name = takeName();
    const std::uint64_t size = takeNumber();
    const std::size_t slash = name.rfind('/');
    holdParent(std::string_view(name).substr(0, slash == std::string::npos ? 0 : slash));
    const char* const leaf = name.c_str() + (slash == std::string::npos ? 0 : slash + 1);
    if (size == folderMark) {
      check(mkdirat(parent(), leaf, 0777), name);
    } else {
      const Descriptor file(openat(parent(), leaf, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666), name);
      takeBody(file.get(), size, name);
    }
  }

  void holdParent(std::string_view path) {
    if (path == parentPath_) return;
    parentPath_ = path;
    if (path.empty()) return;
    parent_ = Descriptor(openat(root_.get(), parentPath_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), parentPath_);
  }

  [[nodiscard]] int parent() const { return parentPath_.empty() ? root_.get() : parent_.get(); }

  void takeBody(int file, std::uint64_t rest, std::string_view name) {
    if (rest < zeroCopySize) require(rest);
    const std::size_t buffered = std::min<std::uint64_t>(rest, available());
    writeAll(file, buffer_.data() + begin_, buffered, name);
    begin_ += buffered;
    for (rest -= buffered; rest > 0;) rest -= spliceSome(file, rest, name);
  }

  std::uint64_t spliceSome(int file, std::uint64_t rest, std::string_view name) {
    const auto length = check(splice(socket_.get(), nullptr, inlet_.get(), nullptr, std::min(rest, pipeLength),
                                     SPLICE_F_MOVE | SPLICE_F_MORE),
                              "splice from the network");
    if (length == 0) throw std::runtime_error("the stream is cut short");
    for (auto left = length; left > 0;) {
      left -= check(splice(outlet_.get(), nullptr, file, nullptr, static_cast<std::size_t>(left), SPLICE_F_MOVE), name);
    }
    return static_cast<std::uint64_t>(length);
  }

  Descriptor root_;
  Descriptor parent_;
  std::string parentPath_;
  Descriptor socket_;
  Descriptor outlet_;
  Descriptor inlet_;
  std::array<char, bufferSize> buffer_{};
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace

void receive(std::uint16_t port, const std::string& path) { Receiver(port, path).run(); }

}  // namespace vesko::reference
