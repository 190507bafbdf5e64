#include "Platform/http/DefaultHTTPServer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/none.hpp>
#include <optional>

#include "Platform/http/HTTPTarget.h"
#include "Platform/http/SelectorEventLoop.h"
#include "Platform/http/SelectorEventLoopContext.h"
#include "Platform/network/IPv4Address.h"
#include "Platform/process/Assert.h"
#include "Platform/sockets/AcceptLoop.h"
#include "Platform/sockets/SocketCalls.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace vesko {

namespace {

using asio::ip::tcp;
using ErrorCode = boost::system::error_code;

/// How long a connection is read from after the last answer. Closing it with unread data would send a reset (RFC 2525,
/// section 2.17), and the client could lose the answer.
constexpr std::chrono::seconds drainPatience{2};

/// Read at a time; most requests are shorter.
constexpr std::size_t readLength = 1024;

struct Answer {
  std::string head;
  std::string body;
  std::optional<std::string> contentLength;
  bool isComplete = false;
};

void begin(Answer& answer, const std::string& status, const DefaultHTTPServer::Headers& headers) {
  answer.head = "HTTP/1.1 " + status + "\r\n";
  for (const auto& [name, value] : headers) {
    ((answer.head += name) += ": ") += value;
    answer.head += "\r\n";
    if (beast::iequals(name, "Content-Length")) answer.contentLength = value;
  }
  answer.head += "\r\n";
}

void append(Answer& answer, std::string piece) {
  if (piece.empty()) {
    answer.isComplete = true;
  } else if (answer.body.empty()) {
    answer.body = std::move(piece);
  } else {
    answer.body += piece;
  }
}

}  // namespace

class DefaultHTTPServer::Implementation : public std::enable_shared_from_this<Implementation> {
 public:
  Implementation(std::shared_ptr<SelectorEventLoop> loop, SocketCalls::Address where, Application application,
                 std::chrono::milliseconds bound)
      : loop_(std::move(loop)), where_(std::move(where)), application_(std::move(application)), bound_(bound) {}
  ~Implementation();
  Implementation(const Implementation&) = delete;
  Implementation& operator=(const Implementation&) = delete;

  [[nodiscard]] bool start(std::error_code& error);
  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

 private:
  class Connection;

  void adopt(FileDescriptor descriptor);
  void close(const std::shared_ptr<Connection>& connection);
  [[nodiscard]] Answer answer(const Environment& environment) const;

  const std::shared_ptr<SelectorEventLoop> loop_;  // first: what follows lives on it
  const SocketCalls::Address where_;
  const Application application_;
  const std::chrono::milliseconds bound_;
  std::atomic<std::uint16_t> port_{0};
  std::shared_ptr<AcceptLoop> acceptLoop_;

  /// By their turns to make room.
  std::map<std::uint64_t, std::shared_ptr<Connection>> connections_;
  std::uint64_t nextTurn_ = 0;
};

/// One connection: reads a request, sends its answer and begins anew, or drains.
///
/// The pending operations on the loop own the connection, so it may outlive the server: the pointer to it is weak.
class DefaultHTTPServer::Implementation::Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(const std::shared_ptr<Implementation>& server, std::uint64_t turn)
      : server_(server),
        bound_(server->bound_),
        socket_(contextOf(*server->loop_)),
        timer_(contextOf(*server->loop_)),
        turn_(turn) {}

  [[nodiscard]] bool open(FileDescriptor descriptor);
  void awaitRequest();
  void close();
  [[nodiscard]] std::uint64_t turn() const noexcept { return turn_; }

 private:
  using Parser = http::request_parser<http::empty_body>;

  /// What goes on with `next`, unless the connection has ended by then.
  [[nodiscard]] auto then(void (Connection::*next)(std::size_t)) {
    return [self = shared_from_this(), next](const ErrorCode& error, std::size_t count) {
      if (error || !self->socket_.is_open()) {
        self->end();
      } else {
        (self.get()->*next)(count);
      }
    };
  }

  void begin(std::chrono::milliseconds bound);
  void read(std::size_t length, void (Connection::*next)(std::size_t));
  void onBytes(std::size_t count);
  void parse();
  void respond(const Parser::value_type& request);
  [[nodiscard]] bool isLast(const Parser::value_type& request) const;
  void onSent(std::size_t count);
  void drain(std::size_t count);
  void end();

  const std::weak_ptr<Implementation> server_;
  const std::chrono::milliseconds bound_;
  tcp::socket socket_;
  asio::steady_timer timer_;
  std::uint64_t turn_;
  beast::flat_buffer buffer_{maximumRequest};
  std::optional<Parser> parser_;
  std::size_t headLength_ = 0;
  Answer answer_;
  bool closesAfterAnswer_ = false;
};

DefaultHTTPServer::Implementation::~Implementation() {
  for (const auto& [turn, connection] : connections_) connection->close();
}

bool DefaultHTTPServer::Implementation::start(std::error_code& error) {
  error = parseIPv4(where_.ip) ? std::error_code() : std::make_error_code(std::errc::invalid_argument);
  if (error) return false;
  FileDescriptor descriptor = SocketCalls::listen(where_, error);
  if (error) return false;
  const std::uint16_t port = SocketCalls::localPort(descriptor.get());
  const auto onConnection = [weak = weak_from_this()](FileDescriptor connection, const std::string& /*host*/) {
    if (const auto self = weak.lock()) self->adopt(std::move(connection));
  };
  acceptLoop_ = AcceptLoop::make(std::move(descriptor), queueOf(*loop_), onConnection, error);
  if (error) return false;
  port_ = port;
  acceptLoop_->start();
  return true;
}

/// At the bound the connection that has waited longest is closed: it has had the most time to send its request.
void DefaultHTTPServer::Implementation::adopt(FileDescriptor descriptor) {
  if (connections_.size() == maximumConnections) close(connections_.begin()->second);
  const auto connection = std::make_shared<Connection>(shared_from_this(), nextTurn_++);
  if (!connection->open(std::move(descriptor))) return;
  connections_.emplace(connection->turn(), connection);
  connection->awaitRequest();
}

void DefaultHTTPServer::Implementation::close(const std::shared_ptr<Connection>& connection) {
  connection->close();
  connections_.erase(connection->turn());
}

Answer DefaultHTTPServer::Implementation::answer(const Environment& environment) const {
  Answer answer;
  application_(
      environment, [&answer](const std::string& status, const Headers& headers) { begin(answer, status, headers); },
      [&answer](std::string piece) { append(answer, std::move(piece)); });
  const std::string length = std::to_string(answer.body.size());
  if (answer.head.empty() || !answer.isComplete || answer.contentLength.value_or(length) != length) {
    assertionFailure("DefaultHTTPServer: the application gave no answer, or not as much as it said");
  }
  return answer;
}

bool DefaultHTTPServer::Implementation::Connection::open(FileDescriptor descriptor) {
  ErrorCode unwatched;
  socket_.assign(tcp::v4(), descriptor.get(), unwatched);
  if (unwatched) return false;
  (void)descriptor.release();
  return true;
}

/// Starts a phase of the connection (a request, an answer, the draining) that may take `bound`, and moves the
/// connection to the end of the order in which connections are closed when there are too many.
void DefaultHTTPServer::Implementation::Connection::begin(std::chrono::milliseconds bound) {
  timer_.expires_after(bound);
  timer_.async_wait([self = shared_from_this()](const ErrorCode& error) {
    // A handler that was already queued when a new phase set the timer again is not of this phase.
    const bool isOfThisTime = self->timer_.expiry() <= std::chrono::steady_clock::now();
    if (!error && isOfThisTime) self->end();
  });
  const auto server = server_.lock();
  if (!server) return;
  auto node = server->connections_.extract(turn_);
  turn_ = server->nextTurn_++;
  node.key() = turn_;
  server->connections_.insert(std::move(node));
}

void DefaultHTTPServer::Implementation::Connection::close() {
  ErrorCode ignored;  // the descriptor is gone in any case
  socket_.close(ignored);
  timer_.cancel();
}

void DefaultHTTPServer::Implementation::Connection::awaitRequest() {
  begin(bound_);
  headLength_ = 0;
  parser_.emplace();
  parser_->header_limit(maximumRequest);
  parser_->body_limit(boost::none);  // bodies are not read, so no request is refused for their length
  parse();
}

void DefaultHTTPServer::Implementation::Connection::read(std::size_t length, void (Connection::*next)(std::size_t)) {
  socket_.async_read_some(buffer_.prepare(length), then(next));
}

void DefaultHTTPServer::Implementation::Connection::onBytes(std::size_t count) {
  buffer_.commit(count);
  parse();
}

/// The parser consumes complete fields and limits only what is left; the limit on the whole head is kept here.
void DefaultHTTPServer::Implementation::Connection::parse() {
  ErrorCode error;
  const std::size_t used = parser_->put(buffer_.data(), error);
  buffer_.consume(used);
  headLength_ += used;
  const std::size_t length = headLength_ + (parser_->is_header_done() ? 0 : buffer_.size());
  const bool isWhole = parser_->is_header_done() && length <= maximumRequest;
  if (isWhole && !error) {
    respond(parser_->get());
  } else if (error == http::error::need_more && length < maximumRequest) {
    read(std::min(readLength, maximumRequest - length), &Connection::onBytes);
  } else {
    end();
  }
}

void DefaultHTTPServer::Implementation::Connection::respond(const Parser::value_type& request) {
  const auto server = server_.lock();
  if (!server) return;
  const auto method = request.method_string();
  const auto target = request.target();
  answer_ = server->answer({{"REQUEST_METHOD", std::string(method.data(), method.size())},
                            {"PATH_INFO", pathOfTarget({target.data(), target.size()})}});
  closesAfterAnswer_ = isLast(request);
  begin(bound_);
  asio::async_write(socket_, std::array{asio::buffer(answer_.head), asio::buffer(answer_.body)},
                    then(&Connection::onSent));
}

/// Whether the connection has to be closed after the answer: when only the close marks the end of the answer, when the
/// client would expect no body (HEAD), and when a body, which is not read, precedes the next request.
bool DefaultHTTPServer::Implementation::Connection::isLast(const Parser::value_type& request) const {
  const bool hasBody =
      parser_->content_length().value_or(0) > 0 || request.find(http::field::transfer_encoding) != request.end();
  return !answer_.contentLength || request.version() < 11 || !request.keep_alive() || hasBody ||
         request.method() == http::verb::head;
}

void DefaultHTTPServer::Implementation::Connection::onSent(std::size_t /*count*/) {
  answer_ = {};
  if (!closesAfterAnswer_) {
    awaitRequest();
    return;
  }
  SocketCalls::shutdownSending(socket_.native_handle());
  begin(std::min<std::chrono::milliseconds>(bound_, drainPatience));
  drain(0);
}

void DefaultHTTPServer::Implementation::Connection::drain(std::size_t /*count*/) {
  buffer_.clear();
  read(maximumRequest, &Connection::drain);
}

void DefaultHTTPServer::Implementation::Connection::end() {
  if (const auto server = server_.lock()) server->close(shared_from_this());
}

DefaultHTTPServer::DefaultHTTPServer(std::shared_ptr<SelectorEventLoop> loop, std::string interface, std::uint16_t port,
                                     Application application, std::chrono::milliseconds bound)
    : implementation_(std::make_shared<Implementation>(
          std::move(loop), SocketCalls::Address{std::move(interface), port}, std::move(application), bound)) {}

DefaultHTTPServer::~DefaultHTTPServer() = default;

bool DefaultHTTPServer::start(std::error_code& error) { return implementation_->start(error); }

std::uint16_t DefaultHTTPServer::port() const noexcept { return implementation_->port(); }

}  // namespace vesko
