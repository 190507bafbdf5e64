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

/// The reading half of a stream socket: the queue of reads, and a buffer that is filled by one system call and serves
/// many small reads. On the socket's queue only.
class StreamReader {
 public:
  struct Request {
    std::uint64_t length = 0;                 ///< bytes
    std::shared_ptr<FileHandle> destination;  ///< none: into memory
    std::optional<char> last;                 ///< set: any bytes up to and with this one complete the read
    double timeout = -1.0;                    ///< seconds; negative: none
    std::int64_t tag = 0;
  };

  StreamReader();
  ~StreamReader();
  StreamReader(const StreamReader&) = delete;
  StreamReader& operator=(const StreamReader&) = delete;

  void enqueue(Request request);
  void clear();

  /// The first read's time-out in seconds; none when no read is queued or it has no time-out. The socket measures it.
  [[nodiscard]] std::optional<double> timeoutOfFirst() const noexcept;
  [[nodiscard]] std::int64_t tagOfFirst() const noexcept { return queue_.front().tag; }
  [[nodiscard]] std::uint64_t bytesDoneOfFirst() const noexcept { return queue_.front().done; }
  [[nodiscard]] bool empty() const noexcept { return queue_.empty(); }

  /// Takes the first read one step further, from the buffer or, when that is empty, from the connection. `error` is set
  /// when the result is `failed`.
  [[nodiscard]] StreamStep step(int descriptor, SocketError& error);

  /// What the last step moved: `partialLength` more bytes for the read; `data` is all of it when that completed the
  /// read.
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

  /// Large enough for a thousand headers or a dozen small files with one system call, small enough for the processor's
  /// cache.
  static constexpr std::size_t bufferSize = 256 * 1024;

  /// From this many bytes on, the rest of a body goes from the socket to its file by splice(2), without a copy in this
  /// program.
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
