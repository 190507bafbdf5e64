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

/// One GET request (RFC 9110) and its answer. Nothing is followed anywhere else: no redirect, no proxy.
struct HTTPRequest {
  std::string ip;  ///< IPv4, dotted decimal
  std::uint16_t port = 0;
  std::string path;                              ///< from its "/" on, escaped; no spaces or control characters
  std::size_t maximumBody = 0;                   ///< bytes; more is taken for a failure
  std::chrono::milliseconds connectPatience{0};  ///< until the other side has accepted the connection
  std::chrono::milliseconds patience{0};         ///< from connecting to the last byte
};

struct HTTPResponse {
  int status = 0;
  std::string body;
};

/// Carries out requests on `loop`, which must run, side by side: how many there may be is for the caller to say. Any
/// thread.
class HTTPSession {
 public:
  using Completion = std::function<void(std::optional<HTTPResponse>)>;

  /// What a request is known by.
  using Task = std::uint64_t;

  /// Time is what `clock` says.
  HTTPSession(std::shared_ptr<SelectorEventLoop> loop, std::shared_ptr<Clock> clock);

  /// Breaks off what is under way; nothing is completed any more. The loop must have been stopped.
  ~HTTPSession();
  HTTPSession(const HTTPSession&) = delete;
  HTTPSession& operator=(const HTTPSession&) = delete;

  /// Gets, and calls `completion` once, on `queue`: with the answer, whatever its status, once it is whole; with none
  /// when there is no such answer in time, it is no HTTP, or the request is cancelled.
  Task get(HTTPRequest request, std::shared_ptr<DispatchQueue> queue, Completion completion);

  /// Breaks a request off, unless it has its answer.
  void cancel(Task task);

 private:
  class Implementation;
  const std::shared_ptr<Implementation> implementation_;
  std::atomic<Task> lastTask_{0};
};

}  // namespace vesko
