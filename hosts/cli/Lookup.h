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

/// When `wait` will have passed.
[[nodiscard]] std::chrono::steady_clock::time_point timeIn(std::chrono::duration<double> wait);

/// Looks for other machines: asks the user's host that runs on this one or, where there is none, announces this machine
/// for the moment. Used on the main thread; while it lives, an interruption ends its waiting.
class Lookup {
 public:
  static constexpr std::string_view nobodyFound =
      "no other machine was found; `vesko doctor` tells what may be in the way";

  static constexpr std::string_view hostGone = "the host that was asked has ended";

  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  explicit Lookup(Program& program);

  /// Takes leave, if this machine was announced.
  ~Lookup();
  Lookup(const Lookup&) = delete;
  Lookup& operator=(const Lookup&) = delete;

  /// Begins; otherwise why that is not possible.
  [[nodiscard]] std::optional<StartupFailureEvent> tryStart();

  /// The same, and the user is told why; the code is then not success.
  [[nodiscard]] ExitCode start();

  /// Begins only where a host runs that can be asked; false otherwise.
  [[nodiscard]] bool askHosts();

  /// True when a host was asked.
  [[nodiscard]] bool isHosted() const noexcept { return host_ != nullptr; }

  /// What is left of `wait` until everybody has had that long to answer: nothing where a host was asked that has been
  /// listening for longer.
  [[nodiscard]] std::chrono::duration<double> leftOf(std::chrono::duration<double> wait) const {
    return std::max(wait - heardFor_, std::chrono::duration<double>());
  }

  /// Has all machines say once more that they are there.
  void announce();

  /// The next change, waited for; none at the deadline, when interrupted and when the host has gone.
  [[nodiscard]] std::optional<Event> next(const Deadline& deadline);

  /// Takes in what is heard within `wait`, or until interrupted.
  void listen(std::chrono::duration<double> wait);

  /// What is known by now, by key.
  [[nodiscard]] const std::map<std::string, PeerView>& peers() const noexcept { return state_.peers(); }

  /// The picture of one of them as a data URL; empty when it has none.
  [[nodiscard]] std::string avatarOf(const std::string& key);

  [[nodiscard]] bool isInterrupted() const { return events_->isInterrupted(); }

 private:
  [[nodiscard]] bool askHost(std::uint16_t port);
  [[nodiscard]] std::optional<StartupFailureEvent> startSession();

  Program& program_;
  const std::shared_ptr<EventQueue> events_ = std::make_shared<EventQueue>();
  SessionState state_;
  std::unique_ptr<ControlClient> host_;
  std::chrono::duration<double> heardFor_{};  // by that host
  std::unique_ptr<Session> session_;
};

}  // namespace vesko
