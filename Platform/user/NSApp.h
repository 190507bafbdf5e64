#pragma once

#include <string>

namespace vesko {

/// The program around the library, where it has a user interface: the host implements it.
class NSApp {
 public:
  virtual ~NSApp() = default;

  /// Shows `messageText` modally; returns when the user has dismissed it. Called on the thread that starts the service.
  virtual void runModal(const std::string& messageText) = 0;

  /// Asks the program to quit; it may decline, and the caller then goes on.
  virtual void terminate() = 0;
};

}  // namespace vesko
