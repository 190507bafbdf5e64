#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Platform/files/Data.h"
#include "Platform/sockets/SocketError.h"
#include "Platform/sockets/StreamStep.h"

namespace vesko {

class FileHandle;
class SplicePipe;

/// The reading half of a stream socket: the queued reads, and a buffer from which small ones are served without asking
/// the system. On the socket's queue only.
class StreamReader {
 public:
  struct Request {
    std::uint64_t length = 0;                 ///< bytes
    std::shared_ptr<FileHandle> destination;  ///< none: into memory
    std::optional<char> last;                 ///< set: any bytes up to this one will do, `length` at most
    double timeout = -1.0;                    ///< seconds; negative: none
    std::int64_t tag = 0;
  };

  StreamReader();
  ~StreamReader();
  StreamReader(const StreamReader&) = delete;
  StreamReader& operator=(const StreamReader&) = delete;

  void enqueue(Request request);
  void clear();

  /// The first request's time-out; none when nothing is queued or it has none. Its deadline is kept by the socket.
  [[nodiscard]] std::optional<double> timeoutOfFirst() const noexcept;
  [[nodiscard]] std::int64_t tagOfFirst() const noexcept { return queue_.front().tag; }
  [[nodiscard]] std::uint64_t bytesDoneOfFirst() const noexcept { return queue_.front().done; }
  [[nodiscard]] bool empty() const noexcept { return queue_.empty(); }

  /// Brings the first request one step further, from the buffer or else from the connection. On `failed`, `error` says
  /// why.
  [[nodiscard]] StreamStep step(int descriptor, SocketError& error);

  /// What the last step moved: `partialLength` bytes more for the request, or, if it completed it, `data` in all.
  struct Moved {
    std::int64_t tag = 0;
    std::uint64_t partialLength = 0;
    Data data;
  };
  [[nodiscard]] Moved& moved() noexcept { return moved_; }

 private:
  struct Pending : Request {
    std::uint64_t done = 0;
    std::uint64_t startOffset = 0;
    Data gathered;
  };

  [[nodiscard]] bool canSplice(const Pending& request);
  [[nodiscard]] static StreamStep stepWithoutBytes(std::error_code code, SocketError& error);
  [[nodiscard]] StreamStep splice(int descriptor, SocketError& error);
  [[nodiscard]] StreamStep fill(int descriptor, SocketError& error);
  [[nodiscard]] std::string_view bytesForFirst() noexcept;
  [[nodiscard]] bool take(Pending& request, std::string_view bytes, SocketError& error);
  [[nodiscard]] StreamStep advance(std::uint64_t count);

  /// Large enough that a thousand headers or a dozen small files come with one call, small enough to stay in cache.
  static constexpr std::size_t bufferSize = 256 * 1024;

  /// From this size on (bytes) what is left of a body goes from the socket to its file without a copy in between.
  static constexpr std::uint64_t spliceThreshold = 64 * 1024;

  std::vector<Pending> queue_;
  std::unique_ptr<char[]> buffer_;
  std::uint64_t begin_ = 0;
  std::uint64_t end_ = 0;
  std::unique_ptr<SplicePipe> pipe_;
  bool pipeUsable_ = true;
  Moved moved_;
};

}  // namespace vesko
