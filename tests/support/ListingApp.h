#pragma once

#include <string>

#include "Platform/user/NSApp.h"
#include "tests/support/EventList.h"

namespace vesko {

/// The messages that would be shown to a user, and "terminate".
class ListingApp : public NSApp, public EventList {
 public:
  void runModal(const std::string& messageText) override { add(messageText); }
  void terminate() override { add("terminate"); }
};

}  // namespace vesko
