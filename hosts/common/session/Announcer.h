#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Platform/queues/Clock.h"
#include "VeskoKit/NetworkTools.h"

namespace vesko {

class InterfaceWatch;
class VeskoServer;

/// Announces this machine to the others: says hello at the start and after each change of addresses, and goodbye at the
/// end. Any thread.
///
///     announcer->announce();          // after the service has opened its discovery endpoint
///     announcer->followInterfaces();  // optional
///     announcer->leave();             // `announce` does nothing from now on
class Announcer : public std::enable_shared_from_this<Announcer> {
 public:
  Announcer(std::shared_ptr<VeskoServer> server, std::shared_ptr<Clock> clock);
  ~Announcer();
  Announcer(const Announcer&) = delete;
  Announcer& operator=(const Announcer&) = delete;

  /// Broadcasts a hello. Does nothing after `leave`.
  void announce();

  /// Broadcasts a hello after each change of the interface addresses. Does nothing where the system does not report
  /// such changes. Call it once.
  void followInterfaces();

  /// Time since the first hello or since the last change of addresses, whichever is later: after a change other
  /// machines are reachable, and they need time to answer. 0 before the first hello.
  [[nodiscard]] std::chrono::duration<double> heardFor() const;

  /// Says goodbye. The first call after `announce` broadcasts it.
  ///
  /// Without an `announce`, when the start has failed, goodbye goes only to the known peers, which the service has
  /// answered. A broadcast would also remove this machine from the tables of peers that know it by another program,
  /// which keeps running. The service answers hellos until it is destroyed, so a second call says goodbye to the peers
  /// heard since the first.
  void leave();

 private:
  void noteChange();

  const std::shared_ptr<VeskoServer> server_;
  const std::shared_ptr<Clock> clock_;
  mutable std::mutex mutex_;
  bool hasAnnounced_ = false;
  std::optional<std::chrono::system_clock::time_point> left_;  // the last call of `leave`
  std::chrono::steady_clock::time_point asked_;                // the first hello or the last change of addresses
  std::vector<NetworkTools::InterfaceEntry> addresses_;
  std::unique_ptr<InterfaceWatch> watch_;
};

}  // namespace vesko
