#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vesko {

class Clock;
class DispatchQueue;
class SelectorEventLoop;

/// One GET request (RFC 9110). Redirects are not followed, and no proxy is used.
struct HTTPRequest {
  std::string ip;  ///< IPv4 address
  std::uint16_t port = 0;
  std::string path;                              ///< from its "/" on, percent-encoded; no spaces or control characters
  std::size_t maximumBody = 0;                   ///< bytes; a longer answer is a failure
  std::chrono::milliseconds connectPatience{0};  ///< until the connection is established
  std::chrono::milliseconds patience{0};         ///< from the start of connecting to the last byte of the answer
};

struct HTTPResponse {
  int status = 0;
  std::string body;
};

/// Carries out requests on the thread of `loop`, which must be running. Requests run in parallel; the caller limits
/// their number. Any thread.
class HTTPSession {
 public:
  using Completion = std::function<void(std::optional<HTTPResponse>)>;

  /// Identifies a request.
  using Task = std::uint64_t;

  /// `clock` measures the time-outs.
  HTTPSession(std::shared_ptr<SelectorEventLoop> loop, std::shared_ptr<Clock> clock);

  /// Cancels all requests without calling their completions. Requires: the loop has been stopped.
  ~HTTPSession();
  HTTPSession(const HTTPSession&) = delete;
  HTTPSession& operator=(const HTTPSession&) = delete;

  /// Starts a request and calls `completion` once, on `queue`: with the complete answer, whatever its status, or with
  /// none when no valid answer arrives in time or the request is cancelled.
  Task get(HTTPRequest request, std::shared_ptr<DispatchQueue> queue, Completion completion);

  /// Cancels a request, unless its answer has arrived.
  void cancel(Task task);

 private:
  class Implementation;
  const std::shared_ptr<Implementation> implementation_;
  std::atomic<Task> lastTask_{0};
};

}  // namespace vesko
