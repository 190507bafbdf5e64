// Moves a file or a folder over TCP in the fastest way known on Linux, as a limit to judge vesko by: the same kind of
// stream, one thread, and none of the checks that a program for use needs.
//   reference receive PORT FOLDER
//   reference send PORT PATH
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t bufferSize = 256 * 1024;
constexpr std::uint64_t zeroCopySize = 64 * 1024;  ///< bodies from this size on bypass the buffer
constexpr std::uint64_t sendLength = 8 << 20;      ///< bytes that one call hands to the network at most
constexpr std::uint64_t pipeLength = 1 << 20;
constexpr std::uint64_t folderMark = ~std::uint64_t{0};

[[noreturn]] void fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }

template <typename Result>
Result check(Result result, const std::string& what) {
  if (result < 0) fail(what);
  return result;
}

class Descriptor {
 public:
  Descriptor() = default;
  Descriptor(int number, const std::string& what) : number_(check(number, what)) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  [[nodiscard]] int get() const { return number_; }

 private:
  int number_ = -1;
};

void writeAll(int descriptor, const char* bytes, std::size_t length, const std::string& what) {
  while (length > 0) {
    const auto written = static_cast<std::size_t>(check(write(descriptor, bytes, length), what));
    bytes += written;
    length -= written;
  }
}

sockaddr_in loopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

Descriptor newSocket() { return {socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"}; }

Descriptor connectTo(std::uint16_t port) {
  const sockaddr_in address = loopbackAddress(port);
  Descriptor result = newSocket();
  check(connect(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "connect");
  return result;
}

Descriptor acceptOne(std::uint16_t port) {
  const sockaddr_in address = loopbackAddress(port);
  const Descriptor listener = newSocket();
  const int yes = 1;
  check(setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes), "setsockopt");
  check(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
  check(listen(listener.get(), 1), "listen");
  return {accept(listener.get(), nullptr, nullptr), "accept"};
}

struct File {
  std::string name;
  std::uint64_t size;
};

struct Folder {
  std::string name;  ///< from the top of the transfer on, as on the wire; empty: what holds the only file
  std::string path;
  std::vector<File> files;
};

/// What is to be sent.
class Listing {
 public:
  explicit Listing(const std::string& path) {
    struct stat status {};
    check(stat(path.c_str(), &status), path);
    const std::size_t slash = path.rfind('/');
    const std::string leaf = slash == std::string::npos ? path : path.substr(slash + 1);
    if (S_ISDIR(status.st_mode)) {
      addFolder(leaf, path);
    } else {
      folders.push_back({"", slash == std::string::npos ? "." : path.substr(0, slash + 1), {}});
      addFile(folders.front(), leaf, status);
    }
  }

  std::vector<Folder> folders;
  std::uint64_t elementCount = 0;
  std::uint64_t totalSize = 0;

 private:
  void addFile(Folder& folder, const std::string& name, const struct stat& status) {
    const auto size = static_cast<std::uint64_t>(status.st_size);
    folder.files.push_back({name, size});
    ++elementCount;
    totalSize += size;
  }

  void addFolder(const std::string& name, const std::string& path) {
    const std::size_t index = folders.size();
    folders.push_back({name, path, {}});
    ++elementCount;
    std::vector<std::string> inner;
    DIR* const entries = opendir(path.c_str());
    if (entries == nullptr) fail(path);
    while (const dirent* const entry = readdir(entries)) {
      const std::string leaf = entry->d_name;
      if (leaf == "." || leaf == "..") continue;
      struct stat status {};
      check(fstatat(dirfd(entries), entry->d_name, &status, 0), leaf);
      if (S_ISDIR(status.st_mode)) inner.push_back(leaf);
      if (S_ISREG(status.st_mode)) addFile(folders[index], leaf, status);
    }
    closedir(entries);
    for (const std::string& leaf : inner) addFolder(name + '/' + leaf, path + '/' + leaf);
  }
};

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
      sent += static_cast<std::size_t>(check(send(socket_.get(), &buffer_[sent], used_ - sent, flags), "send"));
    }
    used_ = 0;
  }

  void put(const void* bytes, std::size_t length) {
    if (used_ + length > bufferSize) flush(0);
    std::memcpy(&buffer_[used_], bytes, length);
    used_ += length;
  }

  void putNumber(std::uint64_t number) {  // This measures one machine with itself, so its byte order will do.
    put(&number, sizeof number);
  }

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

  void takeBody(int file, std::uint64_t rest, const std::string& name) {
    if (rest < zeroCopySize) require(rest);
    const std::size_t buffered = std::min<std::uint64_t>(rest, available());
    writeAll(file, &buffer_[begin_], buffered, name);
    begin_ += buffered;
    for (rest -= buffered; rest > 0;) rest -= spliceSome(file, rest, name);
  }

  std::uint64_t spliceSome(int file, std::uint64_t rest, const std::string& name) {
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

std::uint16_t parsePort(const char* text) { return static_cast<std::uint16_t>(std::strtoul(text, nullptr, 10)); }

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 3 || (arguments[0] != "send" && arguments[0] != "receive")) {
    std::cerr << "usage: reference receive PORT FOLDER | reference send PORT PATH\n";
    return 2;
  }
  const std::uint16_t port = parsePort(arguments[1].c_str());
  arguments[0] == "send" ? Sender(port, arguments[2]).run() : Receiver(port, arguments[2]).run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << "reference: " << error.what() << '\n';
    return 1;
  }
}
