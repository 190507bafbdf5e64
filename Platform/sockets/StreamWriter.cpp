#include "Platform/sockets/StreamWriter.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "Platform/sockets/SocketCalls.h"

namespace vesko {

void StreamWriter::enqueue(Request request) {
  assert(!request.data.empty());
  queue_.push_back({std::move(request), 0});
}

void StreamWriter::clear() {
  queue_.clear();
  buffer_.reset();
  sent_ = gathered_ = 0;
}

std::optional<double> StreamWriter::timeoutOfFirst() const noexcept {
  if (queue_.empty() || queue_.front().timeout < 0) return std::nullopt;
  return queue_.front().timeout;
}

/// Small data is gathered, so that the headers and bodies of many small files share one system call and one packet.
/// Long data is sent from where it is: memory directly, a file by sendfile(2). A long stretch of a file is read through
/// the buffer only where sendfile does not work.
bool StreamWriter::belongsInBuffer(const Pending& request) const noexcept {
  const std::uint64_t left = request.data.size() - request.done;
  if (left > bufferSize) return request.data.isStretchOfFile() && !sendFileUsable_;
  return !request.data.isStretchOfFile() || left < sendFileThreshold || !sendFileUsable_;
}

/// One step of the first request. What was gathered before it is sent first, with the hint that more follows, so that
/// the system does not send a packet that is nearly empty.
StreamStep StreamWriter::step(int descriptor, SocketError& error) {
  if (queue_.empty()) return StreamStep::idle;
  if (blocked_) return StreamStep::blocked;
  const Pending& request = queue_.front();
  const bool buffered = belongsInBuffer(request);
  const std::uint64_t wanted = std::min<std::uint64_t>(request.data.size() - request.done, bufferSize);
  if (buffered && wanted <= bufferSize - gathered_) return gather(error);
  if (const StreamStep flushed = flush(descriptor, true, error); flushed != StreamStep::idle) return flushed;
  return buffered ? gather(error) : sendFirst(descriptor, error);
}

StreamStep StreamWriter::flush(int descriptor, bool more, SocketError& error) {
  while (sent_ < gathered_) {
    std::error_code code;
    sent_ += SocketCalls::send(descriptor, {buffer_.get() + sent_, gathered_ - sent_}, more, code);
    if (code == std::errc::operation_would_block) {
      blocked_ = true;
      return StreamStep::blocked;
    }
    if (code) {
      error = {SocketError::Operation::write, code};
      return StreamStep::failed;
    }
  }
  sent_ = gathered_ = 0;
  return StreamStep::idle;
}

StreamStep StreamWriter::gather(SocketError& error) {
  const Pending& request = queue_.front();
  const auto count =
      static_cast<std::size_t>(std::min<std::uint64_t>(request.data.size() - request.done, bufferSize - gathered_));
  if (!appendFirst(count, error)) return StreamStep::failed;
  return advance(count);
}

/// A file that ends early is an error of its own, `sourceEnded`: the length was announced, so the stream can no longer
/// be completed and the connection has to be reset.
bool StreamWriter::appendFirst(std::size_t count, SocketError& error) {
  if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(bufferSize);
  const Pending& request = queue_.front();
  char* const end = buffer_.get() + gathered_;
  if (request.data.isStretchOfFile()) {
    std::error_code code;
    const std::size_t found = request.data.file()->readAt(request.data.offset() + request.done, {end, count}, code);
    if (!code && found < count) code = SocketErrc::sourceEnded;
    if (code) error = {SocketError::Operation::source, code};
    if (code) return false;
  } else {
    std::memcpy(end, request.data.view().data() + request.done, count);
  }
  gathered_ += count;
  return true;
}

StreamStep StreamWriter::sendFirst(int descriptor, SocketError& error) {
  const Pending& request = queue_.front();
  std::size_t count = 0;
  if (request.data.isStretchOfFile()) {
    count = sendStretch(descriptor, request, error);
  } else {
    count = SocketCalls::send(descriptor, request.data.view().substr(request.done), false, error.code);
    error.operation = SocketError::Operation::write;
  }
  if (error.code == std::errc::operation_would_block) {
    error = {};
    blocked_ = true;
    return StreamStep::blocked;
  }
  if (error) return StreamStep::failed;
  error = {};
  return advance(count);
}

/// The error codes of sendfile(2) are those of two sides: EIO is the file's, EINVAL and ENOSYS mean that this file
/// cannot be sent in this way, and everything else is the connection's.
std::size_t StreamWriter::sendStretch(int descriptor, const Pending& request, SocketError& error) {
  const std::uint64_t left = request.data.size() - request.done;
  const std::size_t count =
      SocketCalls::sendFile(descriptor, *request.data.file(), request.data.offset() + request.done,
                            static_cast<std::size_t>(std::min(left, sendFileLimit)), error.code);
  error.operation = SocketError::Operation::write;
  if (error.code == std::errc::invalid_argument || error.code == std::errc::function_not_supported) {
    sendFileUsable_ = false;
    error = {};
  } else if (error.code == std::errc::io_error) {
    error.operation = SocketError::Operation::source;
  } else if (!error && count == 0) {
    error = {SocketError::Operation::source, SocketErrc::sourceEnded};
  }
  return count;
}

/// Removing the request also releases its data, which may be the last owner of an open file.
StreamStep StreamWriter::advance(std::uint64_t count) {
  Pending& request = queue_.front();
  request.done += count;
  movedTag_ = request.tag;
  movedLength_ = count;
  if (request.done < request.data.size()) return StreamStep::moved;
  queue_.pop_front();
  return StreamStep::completed;
}

}  // namespace vesko
