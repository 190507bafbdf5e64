#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "tests/socket/library/VeskoServerFixture.h"
#include "tests/support/ResourceGuard.h"

namespace vesko {

/// A service among senders that mean no good. Whatever they do, nothing outside its folder changes, and nothing stays
/// open when it is gone.
class HostileTest : public ResourceGuard, public VeskoServerTest {
 protected:
  enum class End : bool { close, reset };

  /// Has only outcomes recorded, for streams that tell of more than is worth keeping.
  void recordOnlyOutcomes() {
    Log::setSink(nullptr);
    server_->setIncomingDelegate(nullptr);
  }

  /// As `receive`, with a choice of how the connection ends.
  [[nodiscard]] bool receiveUntil(std::string_view stream, End end, const std::string& outcome) {
    recorder_->take();
    auto sender = connect();
    sender.send(stream);
    end == End::reset ? sender.reset() : sender.close();
    return endsWith(outcome);
  }

  [[nodiscard]] Tree deliveredTree() const { return folder_.tree("downloads"); }

  /// Reports that only a transfer which comes to its end may make.
  [[nodiscard]] std::size_t toldSuccesses() const {
    return recorder_->count("[finished]") + recorder_->count("[saved") + recorder_->count("[text");
  }

  /// The service does what it is for, and the transfers before have left nothing half done.
  void expectGoodService() {
    for (const auto& name : delivered()) EXPECT_FALSE(name.starts_with(".Vesko")) << name;
    clear();
    EXPECT_TRUE(receive(StreamBytes::metadata(1, 5) + StreamBytes::file("good", "whole"), "finished"));
    EXPECT_EQ(deliveredTree(), (Tree{{"good", "whole"}}));
    clear();
  }
};

}  // namespace vesko
