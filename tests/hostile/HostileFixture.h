#pragma once

#include <string>

#include "tests/socket/VeskoServerFixture.h"
#include "tests/support/OpenHandles.h"

namespace vesko {

/// A service among senders that mean no good. Whatever they do, nothing outside its folder changes, and nothing stays
/// open when it is gone.
class HostileTest : public OpenHandles, public VeskoServerTest {
 protected:
  /// Has only outcomes recorded, for streams that tell of more than is worth keeping.
  void recordOnlyOutcomes() {
    Log::setSink(nullptr);
    server_->setIncomingDelegate(nullptr);
  }

  /// The service does what it is for, and the transfers before have left nothing half done.
  void expectGoodService() {
    EXPECT_TRUE(receive(StreamBytes::metadata(1, 5) + StreamBytes::file("good", "whole"), "finished"));
    EXPECT_EQ(folder_.read("downloads/good"), "whole");
    for (const auto& name : delivered()) EXPECT_NE(name.find(".Vesko"), 0U) << name;
    clear();
  }
};

}  // namespace vesko
