#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vesko {

class DispatchQueue;
class SelectorEventLoop;

/// One GET request (RFC 9110) and its answer. Nothing is followed anywhere else: no redirect, no proxy.
struct HTTPRequest {
  std::string host;  ///< IPv4, dotted decimal
  std::uint16_t port = 0;
  std::string path;                       ///< from its "/" on, escaped; no spaces or control characters
  std::size_t maximumBody = 0;            ///< bytes; more is taken for a failure
  std::chrono::milliseconds patience{0};  ///< from connecting, once the request is under way, to the last byte
};

struct HTTPResponse {
  int status = 0;
  std::string body;
};

/// Carries out requests on `loop`, which must run; further ones wait while `maximumAtOnce` are under way. Any thread.
class HTTPSession {
 public:
  using Completion = std::function<void(std::optional<HTTPResponse>)>;

  HTTPSession(std::shared_ptr<SelectorEventLoop> loop, std::size_t maximumAtOnce);

  /// Breaks off what is under way; nothing is completed any more. The loop must have been stopped.
  ~HTTPSession();
  HTTPSession(const HTTPSession&) = delete;
  HTTPSession& operator=(const HTTPSession&) = delete;

  /// Gets, and calls `completion` once, on `queue`: with the answer, whatever its status, once it is whole; with none
  /// when there is no such answer in time or it is no HTTP. At most 65,536 requests wait; one more fails at once.
  void get(HTTPRequest request, std::shared_ptr<DispatchQueue> queue, Completion completion);

 private:
  class Implementation;
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace vesko
