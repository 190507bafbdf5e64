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

/// Keeps the other machines told that this one is here: at the start, whenever its addresses change, and when it
/// leaves. Any thread.
class Announcer : public std::enable_shared_from_this<Announcer> {
 public:
  Announcer(std::shared_ptr<VeskoServer> server, std::shared_ptr<Clock> clock);
  ~Announcer();
  Announcer(const Announcer&) = delete;
  Announcer& operator=(const Announcer&) = delete;

  /// Says hello to all; does nothing after `leave`.
  void announce();

  /// Says hello again whenever the set of interface addresses has changed. Where the system does not tell of that,
  /// nothing happens.
  void followInterfaces();

  /// How long the others have had for their answers: since the first hello, or since the last change of addresses,
  /// which leads to others. Not more than nothing before.
  [[nodiscard]] std::chrono::duration<double> heardFor() const;

  /// Says goodbye: to all after `announce`. A start that was given up before it has answered whoever said hello
  /// meanwhile, so then it is said to them alone: others may know this machine by another host, which stays. The
  /// service goes on answering until it ends; another call says goodbye to those who were answered since the last.
  void leave();

 private:
  void noteChange();

  const std::shared_ptr<VeskoServer> server_;
  const std::shared_ptr<Clock> clock_;
  mutable std::mutex mutex_;
  bool hasAnnounced_ = false;
  std::optional<std::chrono::system_clock::time_point> left_;  // last
  std::chrono::steady_clock::time_point asked_;                // when the answers that are being heard were asked for
  std::vector<NetworkTools::InterfaceEntry> addresses_;
  std::unique_ptr<InterfaceWatch> watch_;
};

}  // namespace vesko
