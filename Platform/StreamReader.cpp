#include "Platform/StreamReader.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Platform/FileHandle.h"
#include "Platform/SocketCalls.h"

namespace vesko {

void StreamReader::enqueue(Request request) {
  assert(request.length > 0);
  queue_.push_back({std::move(request), 0, 0, {}});
}

void StreamReader::clear() {
  queue_.clear();
  buffer_.reset();
  begin_ = end_ = 0;
}

std::optional<double> StreamReader::timeoutOfFirst() const noexcept {
  if (queue_.empty() || queue_.front().timeout < 0) return std::nullopt;
  return queue_.front().timeout;
}

StreamStep StreamReader::step(int descriptor, SocketError& error) {
  if (queue_.empty()) return StreamStep::idle;
  if (begin_ == end_) {
    if (const StreamStep filled = fill(descriptor, error); filled != StreamStep::moved) return filled;
  }
  Pending& request = queue_.front();
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(end_ - begin_, request.length - request.done));
  if (!take(request, {buffer_.get() + begin_, count}, error)) return StreamStep::failed;
  begin_ += count;
  return advance(count);
}

StreamStep StreamReader::fill(int descriptor, SocketError& error) {
  if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(bufferSize);
  std::error_code code;
  const std::size_t count = SocketCalls::receive(descriptor, {buffer_.get(), bufferSize}, code);
  if (code == std::errc::operation_would_block) return StreamStep::blocked;
  if (code || count == 0) {
    error = {SocketError::Operation::read, code ? code : make_error_code(SocketErrc::endOfStream)};
    return StreamStep::failed;
  }
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
  moved_.data = request.destination
                    ? Data::stretchOfFile(std::move(request.destination), request.startOffset, request.length)
                    : std::move(request.gathered);
  queue_.erase(queue_.begin());
  return StreamStep::completed;
}

}  // namespace vesko
