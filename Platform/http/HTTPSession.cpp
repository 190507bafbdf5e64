#include "Platform/http/HTTPSession.h"

#include <algorithm>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <map>
#include <string_view>
#include <utility>

#include "Platform/http/SelectorEventLoop.h"
#include "Platform/http/SelectorEventLoopContext.h"
#include "Platform/network/IPv4Address.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/SocketCalls.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace vesko {

namespace {

using asio::ip::tcp;
using ErrorCode = boost::system::error_code;

/// Bytes of the status line and the fields of an answer; the servers we ask send a few hundred. The chunk headers and
/// trailers of a body have the same limit.
constexpr std::size_t maximumHead = 8192;

/// Read at a time.
constexpr std::size_t readLength = 16 * 1024;

/// A path that can be written into a request line: no blanks or control characters, which could add a field.
bool isPath(std::string_view path) {
  return path.starts_with('/') && std::ranges::all_of(path, [](char character) {
           const auto byte = static_cast<unsigned char>(character);
           return byte > 0x20 && byte != 0x7F;
         });
}

std::string headOf(const HTTPRequest& request) {
  return "GET " + request.path + " HTTP/1.1\r\nHost: " + request.ip + ":" + std::to_string(request.port) +
         "\r\nUser-Agent: Vesko/1.0\r\nConnection: close\r\n\r\n";
}

struct Job {
  HTTPRequest request;
  std::shared_ptr<DispatchQueue> queue;
  HTTPSession::Completion completion;
};

}  // namespace

class HTTPSession::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
  Implementation(std::shared_ptr<SelectorEventLoop> loop, std::shared_ptr<Clock> clock)
      : loop_(std::move(loop)), clock_(std::move(clock)) {}
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  void get(Task task, Job job);
  void cancel(Task task);

 private:
  class Exchange;

  void start(Task task, Job job);
  void breakOff(Task task);
  void onEnd(Task task, Job job, std::optional<HTTPResponse> response);

  const std::shared_ptr<SelectorEventLoop> loop_;  // first: what follows lives on it
  const std::shared_ptr<Clock> clock_;
  std::map<Task, std::shared_ptr<Exchange>> exchanges_;  // on the loop's thread
};

/// One request and its answer.
///
/// The pending operations on the loop own the exchange, so it may outlive the session: the pointer to it is weak.
class HTTPSession::Implementation::Exchange : public std::enable_shared_from_this<Exchange> {
 public:
  Exchange(const std::shared_ptr<Implementation>& session, Task task, Job job)
      : session_(session),
        socket_(contextOf(*session->loop_)),
        task_(task),
        job_(std::move(job)),
        clock_(session->clock_) {}

  void start();

  /// Ends without an answer.
  void fail() { end(std::nullopt); }

  /// Ends without a word to anybody.
  void abandon();

 private:
  using Parser = http::response_parser<http::string_body>;

  [[nodiscard]] bool open();
  void watch(std::chrono::steady_clock::duration delay);
  void onTime();
  void onConnect(const ErrorCode& error);
  void read();
  void onBytes(ErrorCode error, std::size_t count);
  void beginAnswer();
  void parseNext(ErrorCode& error);
  [[nodiscard]] bool isWhole() const;
  [[nodiscard]] bool hasEnoughToParse() const;
  [[nodiscard]] bool holdsTooMuch() const;
  void end(std::optional<HTTPResponse> response);
  void close();

  const std::weak_ptr<Implementation> session_;
  tcp::socket socket_;
  const Task task_;
  Job job_;
  const std::shared_ptr<Clock> clock_;
  std::chrono::steady_clock::time_point deadline_;
  std::unique_ptr<Alarm> alarm_;
  bool isConnected_ = false;
  std::string head_;
  beast::flat_buffer buffer_{maximumHead + readLength};
  std::optional<Parser> parser_;
  std::size_t headLength_ = 0;
  bool hasEnded_ = false;
};

HTTPSession::Implementation::~Implementation() {
  for (const auto& [task, exchange] : exchanges_) exchange->abandon();
}

void HTTPSession::Implementation::get(Task task, Job job) {
  asio::post(contextOf(*loop_), [weak = weak_from_this(), task, job = std::move(job)]() mutable {
    if (const auto self = weak.lock()) self->start(task, std::move(job));
  });
}

/// The loop runs its tasks in order, so at this time the request has been started, and may already be complete.
void HTTPSession::Implementation::cancel(Task task) {
  asio::post(contextOf(*loop_), [weak = weak_from_this(), task] {
    if (const auto self = weak.lock()) self->breakOff(task);
  });
}

void HTTPSession::Implementation::start(Task task, Job job) {
  const auto exchange = std::make_shared<Exchange>(shared_from_this(), task, std::move(job));
  exchanges_.emplace(task, exchange);
  exchange->start();
}

void HTTPSession::Implementation::breakOff(Task task) {
  const auto found = exchanges_.find(task);
  if (found == exchanges_.end()) return;
  const auto exchange = found->second;  // keeps it alive: ending removes it from the map
  exchange->fail();
}

void HTTPSession::Implementation::onEnd(Task task, Job job, std::optional<HTTPResponse> response) {
  exchanges_.erase(task);
  job.queue->async(
      [alive = weak_from_this(), completion = std::move(job.completion), response = std::move(response)]() mutable {
        if (!alive.expired()) completion(std::move(response));
      });
}

void HTTPSession::Implementation::Exchange::start() {
  const auto address = parseIPv4(job_.request.ip);
  if (!address || !isPath(job_.request.path) || !open()) {
    fail();
    return;
  }
  beginAnswer();
  head_ = headOf(job_.request);
  deadline_ = clock_->monotonicNow() + job_.request.patience;
  watch(std::min(job_.request.connectPatience, job_.request.patience));
  socket_.async_connect({asio::ip::address_v4(*address), job_.request.port},
                        [self = shared_from_this()](const ErrorCode& failure) { self->onConnect(failure); });
}

/// The clock calls on any thread and at any time, also when the session, and with it the loop, is gone.
void HTTPSession::Implementation::Exchange::watch(std::chrono::steady_clock::duration delay) {
  alarm_ = clock_->callAfter(delay, [session = session_, weak = weak_from_this()] {
    const auto alive = session.lock();
    if (!alive) return;
    asio::post(contextOf(*alive->loop_), [weak] {
      if (const auto self = weak.lock()) self->onTime();
    });
  });
}

/// The alarm for the connection may arrive after the connection was made; then only the deadline counts.
void HTTPSession::Implementation::Exchange::onTime() {
  if (!isConnected_ || clock_->monotonicNow() >= deadline_) fail();
}

void HTTPSession::Implementation::Exchange::onConnect(const ErrorCode& error) {
  if (error || hasEnded_) {
    fail();
    return;
  }
  isConnected_ = true;
  watch(deadline_ - clock_->monotonicNow());
  asio::async_write(socket_, asio::buffer(head_),
                    [self = shared_from_this()](const ErrorCode& failure, std::size_t /*count*/) {
                      failure ? self->fail() : self->read();
                    });
}

bool HTTPSession::Implementation::Exchange::open() {
  std::error_code error;
  FileDescriptor descriptor = SocketCalls::makeStream(error);
  if (error) return false;
  ErrorCode unwatched;
  socket_.assign(tcp::v4(), descriptor.get(), unwatched);
  if (unwatched) return false;
  (void)descriptor.release();
  return true;
}

void HTTPSession::Implementation::Exchange::abandon() {
  job_ = {};
  hasEnded_ = true;
  close();
}

void HTTPSession::Implementation::Exchange::close() {
  ErrorCode ignored;  // the descriptor is gone in any case
  socket_.close(ignored);
  alarm_.reset();
}

void HTTPSession::Implementation::Exchange::read() {
  socket_.async_read_some(
      buffer_.prepare(readLength),
      [self = shared_from_this()](const ErrorCode& error, std::size_t count) { self->onBytes(error, count); });
}

void HTTPSession::Implementation::Exchange::beginAnswer() {
  parser_.emplace();
  parser_->header_limit(maximumHead);
  parser_->body_limit(job_.request.maximumBody);
  headLength_ = 0;
}

void HTTPSession::Implementation::Exchange::onBytes(ErrorCode error, std::size_t count) {
  buffer_.commit(count);
  const bool isEnd = error == asio::error::eof;
  if (isEnd) error = {};
  while (!error && !isWhole() && hasEnoughToParse()) parseNext(error);
  if (error == http::error::need_more) error = {};
  if (!error && isEnd && parser_->got_some()) parser_->put_eof(error);
  if (!error && isWhole()) {
    end(HTTPResponse{static_cast<int>(parser_->get().result_int()), std::move(parser_->get().body())});
  } else if (error || isEnd || holdsTooMuch()) {
    fail();
  } else {
    read();
  }
}

void HTTPSession::Implementation::Exchange::parseNext(ErrorCode& error) {
  if (parser_->is_done()) beginAnswer();  // after an interim one
  const bool isHead = !parser_->is_header_done();
  const std::size_t used = parser_->put(buffer_.data(), error);
  buffer_.consume(used);
  if (isHead) headLength_ += used;
  if (headLength_ > maximumHead) error = http::error::header_limit;
}

bool HTTPSession::Implementation::Exchange::isWhole() const {
  return parser_->is_done() && parser_->get().result_int() >= 200;
}

/// The parser expects that the last chunk ("0", CR LF, CR LF: five bytes) is in the buffer completely. Every other
/// chunk is followed by at least as much, so waiting for five bytes delays nothing.
bool HTTPSession::Implementation::Exchange::hasEnoughToParse() const {
  constexpr std::size_t lastChunk = 5;
  const bool isInChunks = parser_->is_header_done() && parser_->chunked();
  return buffer_.size() >= (isInChunks ? lastChunk : 1);
}

/// The parser consumes complete fields and limits only what is left; the limit on the whole head is kept here.
bool HTTPSession::Implementation::Exchange::holdsTooMuch() const {
  return (parser_->is_header_done() ? 0 : headLength_) + buffer_.size() >= maximumHead;
}

void HTTPSession::Implementation::Exchange::end(std::optional<HTTPResponse> response) {
  if (std::exchange(hasEnded_, true)) return;
  close();
  if (const auto session = session_.lock()) {
    session->onEnd(task_, std::move(job_), std::move(response));
  }
}

HTTPSession::HTTPSession(std::shared_ptr<SelectorEventLoop> loop, std::shared_ptr<Clock> clock)
    : implementation_(std::make_shared<Implementation>(std::move(loop), std::move(clock))) {}

HTTPSession::~HTTPSession() = default;

HTTPSession::Task HTTPSession::get(HTTPRequest request, std::shared_ptr<DispatchQueue> queue, Completion completion) {
  const Task task = ++lastTask_;
  implementation_->get(task, {std::move(request), std::move(queue), std::move(completion)});
  return task;
}

void HTTPSession::cancel(Task task) { implementation_->cancel(task); }

}  // namespace vesko
