#pragma once

#include "hosts/cli/Console.h"
#include "hosts/cli/Reporter.h"

namespace vesko {

/// Prints each event as one line of JSON; with --quiet without progress. Used on one thread.
class JsonReporter : public Reporter {
 public:
  JsonReporter(Console& console, bool isQuiet) : console_(console), isQuiet_(isQuiet) {}

  void report(const Event& event) override;

 private:
  Console& console_;
  const bool isQuiet_;
};

}  // namespace vesko
