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

/// A small HTTP/1.1 server (RFC 9112). It passes each request to an application, one at a time, on the thread of its
/// loop.
///
/// Only the head of a request is read; a body is neither needed nor waited for. A connection whose request is broken,
/// too large or too slow is closed without an answer; others are not affected.
class DefaultHTTPServer {
 public:
  /// Bytes of one request, request line and fields together. Peers send less than a tenth of that.
  static constexpr std::size_t maximumRequest = 8192;

  /// For a complete request to arrive, counted from the connection or from the answer before, and for its answer to be
  /// sent.
  static constexpr std::chrono::seconds patience{10};

  /// Connections at once. For one more, the connection that has been at its request or answer for longest is closed.
  static constexpr std::size_t maximumConnections = 256;

  /// What the application gets to know of a request: "REQUEST_METHOD" as it was sent, and "PATH_INFO", the path of the
  /// target (also of one in absolute form) without its query and percent-decoded, so it may contain any bytes.
  using Environment = std::map<std::string, std::string>;
  using Headers = std::vector<std::pair<std::string, std::string>>;

  /// Takes the status, such as "200 OK", and all headers in order; the server adds none. Without a "Content-Length"
  /// header the end of the connection marks the end of the body.
  using StartResponse = std::function<void(const std::string& status, const Headers& headers)>;

  /// Takes a piece of the body; an empty one marks its end.
  using SendBody = std::function<void(std::string bytes)>;

  /// Called on the loop's thread. It must give the whole answer before it returns: `startResponse` once, pieces of the
  /// body, the end. It must not throw.
  using Application =
      std::function<void(const Environment& environment, const StartResponse& startResponse, const SendBody& sendBody)>;

  /// Does not listen yet. `interface`: the IPv4 address to listen on. `port` 0 lets the system choose. `bound` replaces
  /// `patience`; for tests.
  DefaultHTTPServer(std::shared_ptr<SelectorEventLoop> loop, std::string interface, std::uint16_t port,
                    Application application, std::chrono::milliseconds bound = patience);

  /// Closes all connections. Requires: the loop has been stopped or was never started.
  ~DefaultHTTPServer();
  DefaultHTTPServer(const DefaultHTTPServer&) = delete;
  DefaultHTTPServer& operator=(const DefaultHTTPServer&) = delete;

  /// Listens; requests are answered once the loop runs. False, with `error` set, when it cannot. Any thread; once.
  [[nodiscard]] bool start(std::error_code& error);

  /// The port it listens on; 0 while it does not. Any thread.
  [[nodiscard]] std::uint16_t port() const noexcept;

 private:
  class Implementation;
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace vesko
