#pragma once

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"
#include "hosts/common/events/EventQueue.h"
#include "hosts/common/session/SessionState.h"

namespace vesko {

class ControlClient;
class Session;

/// The time `wait` from now.
[[nodiscard]] std::chrono::steady_clock::time_point timeIn(std::chrono::duration<double> wait);

/// Searches for other machines. Asks a running host of the user; without one it announces this machine until it is
/// destroyed. Used on the main thread. While it lives, a signal ends its waits instead of the process.
///
///     Lookup lookup(program);
///     if (const auto code = lookup.start(); code != ExitCode::success) return code;
///     lookup.listen(lookup.leftOf(wait));
///     if (lookup.isInterrupted()) return ExitCode::interrupted;
///     use(lookup.peers());
class Lookup {
 public:
  static constexpr std::string_view nobodyFound = "no other machine was found; `vesko doctor` shows possible reasons";

  static constexpr std::string_view hostGone =
      "the running vesko that was asked for other machines has exited; run this command again";

  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  explicit Lookup(Program& program);

  /// Says goodbye if it has announced this machine.
  ~Lookup();
  Lookup(const Lookup&) = delete;
  Lookup& operator=(const Lookup&) = delete;

  /// Starts the search. Returns the failure when that is not possible.
  [[nodiscard]] std::optional<StartupFailureEvent> tryStart();

  /// The same, but reports a failure to the user and returns an exit code.
  [[nodiscard]] ExitCode start();

  /// Starts the search only if a host runs; otherwise returns false.
  [[nodiscard]] bool askHosts();

  /// True when the answers come from a host.
  [[nodiscard]] bool isHosted() const noexcept { return host_ != nullptr; }

  /// The rest of `wait`: a host that has listened for longer than `wait` already has the answers of all machines, so 0.
  [[nodiscard]] std::chrono::duration<double> leftOf(std::chrono::duration<double> wait) const {
    return std::max(wait - heardFor_, std::chrono::duration<double>());
  }

  /// Broadcasts a hello, which all machines answer.
  void announce();

  /// Waits for the next event; none at the deadline, after a signal, and when the host has exited.
  [[nodiscard]] std::optional<Event> next(const Deadline& deadline);

  /// Processes events for `wait`, or until a signal or the end of the host.
  void listen(std::chrono::duration<double> wait);

  /// The machines known now, by key.
  [[nodiscard]] const std::map<std::string, PeerView>& peers() const noexcept { return state_.peers(); }

  /// The picture of a machine as a data URL, or "loading"; empty when it has none.
  [[nodiscard]] std::string avatarOf(const std::string& key);

  [[nodiscard]] bool isInterrupted() const { return events_->isInterrupted(); }

 private:
  [[nodiscard]] bool askHost(std::uint16_t port);
  [[nodiscard]] std::optional<StartupFailureEvent> startSession();

  Program& program_;
  const std::shared_ptr<EventQueue> events_ = std::make_shared<EventQueue>();
  SessionState state_;
  std::unique_ptr<ControlClient> host_;
  std::chrono::duration<double> heardFor_{};  // how long that host has listened
  std::unique_ptr<Session> session_;
};

}  // namespace vesko
