#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "VeskoKit/NetworkTools.h"

namespace vesko {

class InterfaceWatch;
class VeskoServer;

/// Keeps the other machines told that this one is here: at the start, whenever its addresses change, and when it
/// leaves. Any thread.
class Announcer : public std::enable_shared_from_this<Announcer> {
 public:
  explicit Announcer(std::shared_ptr<VeskoServer> server);
  ~Announcer();
  Announcer(const Announcer&) = delete;
  Announcer& operator=(const Announcer&) = delete;

  /// Says hello to all; does nothing after `leave`.
  void announce();

  /// Says hello again whenever the set of interface addresses has changed. Where the system does not tell of that,
  /// nothing happens.
  void followInterfaces();

  /// Says goodbye to all, once.
  void leave();

 private:
  void noteChange();

  const std::shared_ptr<VeskoServer> server_;
  std::mutex mutex_;
  bool hasAnnounced_ = false;
  bool hasLeft_ = false;
  std::vector<NetworkTools::InterfaceEntry> addresses_;
  std::unique_ptr<InterfaceWatch> watch_;
};

}  // namespace vesko
