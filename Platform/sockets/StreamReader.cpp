#include "Platform/sockets/StreamReader.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "Platform/sockets/SocketCalls.h"
#include "Platform/sockets/SplicePipe.h"

namespace vesko {

StreamReader::StreamReader() = default;
StreamReader::~StreamReader() = default;

void StreamReader::enqueue(Request request) {
  assert(request.length > 0);
  queue_.push_back({std::move(request), 0, 0, {}});
}

void StreamReader::clear() {
  queue_.clear();
  buffer_.reset();
  pipe_.reset();
  begin_ = end_ = 0;
}

std::optional<double> StreamReader::timeoutOfFirst() const noexcept {
  if (queue_.empty() || queue_.front().timeout < 0) return std::nullopt;
  return queue_.front().timeout;
}

/// One step of the first request. Bytes that are already in the buffer come first; only with an empty buffer may bytes
/// be moved past it, or their order would be lost.
StreamStep StreamReader::step(int descriptor, SocketError& error) {
  if (queue_.empty()) return StreamStep::idle;
  if (begin_ == end_ && canSplice(queue_.front())) return splice(descriptor, error);
  if (begin_ == end_) {
    if (const StreamStep filled = fill(descriptor, error); filled != StreamStep::moved) return filled;
  }
  const std::string_view bytes = bytesForFirst();
  if (!take(queue_.front(), bytes, error)) return StreamStep::failed;
  begin_ += bytes.size();
  return advance(bytes.size());
}

/// The part of the buffer that belongs to the first request. A request that ends with a certain byte gets its length
/// here: what is buffered up to that byte, or all of it when the byte has not come yet.
std::string_view StreamReader::bytesForFirst() noexcept {
  Pending& request = queue_.front();
  const std::uint64_t left = request.length - request.done;
  const std::string_view bytes(buffer_.get() + begin_, static_cast<std::size_t>(std::min(left, end_ - begin_)));
  if (!request.last) return bytes;
  const std::size_t position = bytes.find(*request.last);
  const std::string_view wanted = bytes.substr(0, position == std::string_view::npos ? position : position + 1);
  request.length = wanted.size();
  return wanted;
}

/// A short body is copied: two system calls and a pipe cost more than copying some kilobytes. Without a pipe, when the
/// process is short of descriptors say, everything is copied.
bool StreamReader::canSplice(const Pending& request) {
  if (!request.destination || !pipeUsable_ || request.length - request.done < spliceThreshold) return false;
  if (!pipe_) pipe_ = SplicePipe::make();
  pipeUsable_ = pipe_ != nullptr;
  return pipeUsable_;
}

/// Socket to pipe to file, without the bytes entering the program. What the pipe has taken is gone from the socket, so
/// it is written to the file in the same step.
StreamStep StreamReader::splice(int descriptor, SocketError& error) {
  Pending& request = queue_.front();
  std::error_code code;
  const std::uint64_t count = pipe_->takeFrom(descriptor, request.length - request.done, code);
  if (code || count == 0) return stepWithoutBytes(code, error);
  if (request.done == 0) request.startOffset = request.destination->offsetInFile();
  pipe_->handOnTo(*request.destination, code);
  if (code) {
    error = {SocketError::Operation::destination, code};
    return StreamStep::failed;
  }
  return advance(count);
}

/// Zero bytes are the orderly end of the stream. That is a failure here, since a request is still open.
StreamStep StreamReader::stepWithoutBytes(std::error_code code, SocketError& error) {
  if (code == std::errc::operation_would_block) return StreamStep::blocked;
  error = {SocketError::Operation::read, code ? code : make_error_code(SocketErrc::endOfStream)};
  return StreamStep::failed;
}

StreamStep StreamReader::fill(int descriptor, SocketError& error) {
  if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(bufferSize);
  std::error_code code;
  const std::size_t count = SocketCalls::receive(descriptor, {buffer_.get(), bufferSize}, code);
  if (code || count == 0) return stepWithoutBytes(code, error);
  begin_ = 0;
  end_ = count;
  return StreamStep::moved;
}

bool StreamReader::take(Pending& request, std::string_view bytes, SocketError& error) {
  if (!request.destination) {
    request.gathered.append(bytes);
    return true;
  }
  if (request.done == 0) request.startOffset = request.destination->offsetInFile();
  std::error_code code;
  request.destination->writeData(bytes, code);
  if (code) error = {SocketError::Operation::destination, code};
  return !code;
}

StreamStep StreamReader::advance(std::uint64_t count) {
  Pending& request = queue_.front();
  request.done += count;
  moved_.tag = request.tag;
  moved_.partialLength = count;
  if (request.done < request.length) return StreamStep::moved;
  // The request gives its file away: from here on the data that is handed out is what keeps the file open.
  moved_.data = request.destination
                    ? Data::stretchOfFile(std::move(request.destination), request.startOffset, request.length)
                    : std::move(request.gathered);
  queue_.erase(queue_.begin());
  return StreamStep::completed;
}

}  // namespace vesko
