#pragma once

#include <string>

namespace vesko {

/// The user interface of the host, for alerts. A host that has one implements this and sets `VeskoServer::application`.
class NSApp {
 public:
  virtual ~NSApp() = default;

  /// Shows `messageText` and returns when the user has dismissed it. Called on the thread that starts the service.
  virtual void runModal(const std::string& messageText) = 0;

  /// Asks the program to quit; called after each alert. The program may ignore it: the start then goes on.
  virtual void terminate() = 0;
};

}  // namespace vesko
