#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace vesko {

class SelectorEventLoop;

/// A small HTTP/1.1 server (RFC 9112) that hands every request to an application, on its loop's thread, one at a time.
///
/// A request is read for its head alone; a body is neither wanted nor waited for. What is slow, broken or too large is
/// closed without an answer, and so bears on nobody else.
class DefaultHTTPServer {
 public:
  /// Of one request, line and fields together; bytes. Ours are ten times shorter.
  static constexpr std::size_t maximumRequest = 8192;

  /// For a request to arrive whole, from the connection or the answer before it on, and for its answer to leave.
  static constexpr std::chrono::seconds patience{10};

  /// Connections at once. Beyond, the one that has been at its request, or at taking its answer, the longest makes
  /// room.
  static constexpr std::size_t maximumConnections = 256;

  /// What is known of a request: "REQUEST_METHOD" as sent, and "PATH_INFO", the path of the target without its query,
  /// percent-decoded, also of a target in absolute form; it may be any bytes.
  using Environment = std::map<std::string, std::string>;
  using Headers = std::vector<std::pair<std::string, std::string>>;

  /// Takes the status, such as "200 OK", and all headers in their order; none is added. Without a "Content-Length" the
  /// end of the connection ends the body.
  using StartResponse = std::function<void(const std::string& status, const Headers& headers)>;

  /// Takes a piece of the body; an empty one ends it.
  using SendBody = std::function<void(std::string bytes)>;

  /// Called on the loop's thread; answers before it returns: one start, then pieces, then the end. Must not throw.
  using Application =
      std::function<void(const Environment& environment, const StartResponse& startResponse, const SendBody& sendBody)>;

  /// Opens nothing yet. `interface`: the IPv4 address to listen on in dotted-decimal form. `port` 0 lets the system
  /// choose. `bound`: what to use in place of `patience`.
  DefaultHTTPServer(std::shared_ptr<SelectorEventLoop> loop, std::string interface, std::uint16_t port,
                    Application application, std::chrono::milliseconds bound = patience);

  /// Closes all connections. The loop must have been stopped, or not been started.
  ~DefaultHTTPServer();
  DefaultHTTPServer(const DefaultHTTPServer&) = delete;
  DefaultHTTPServer& operator=(const DefaultHTTPServer&) = delete;

  /// Listens; requests are served once the loop runs. False, with `error` set, when it cannot. Any thread, once.
  [[nodiscard]] bool start(std::error_code& error);

  /// The port that it listens on; 0 while it does not. Any thread.
  [[nodiscard]] std::uint16_t port() const noexcept;

 private:
  class Implementation;
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace vesko
