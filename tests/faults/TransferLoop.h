#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tests/faults/FaultsFixture.h"

namespace vesko {

/// Sends the same again and again, with one call after the other failing.
class TransferLoop : public FaultsTest {
 protected:
  using Fault = SystemFaults::Fault;

  ~TransferLoop() override { RecordProperty("runs", std::to_string(runs_)); }

  /// Starts a service and sends once without faults.
  void begin(const std::string& name);

  /// Sends with one fault in force, and then without; false when it had nothing left to strike.
  [[nodiscard]] bool strikes(const Fault& fault);

  /// Has each of these calls fail, the first, the second, and so on until there is no such call, and with it those that
  /// follow, `count` in all.
  void failEachInTurn(int error, const std::vector<std::string_view>& calls, std::size_t count);

  Fault standing_;  ///< always in force, too
  bool removesDownloads_ = false;

 private:
  void expectCause(const Fault& fault, const Outcomes& outcomes) const;

  Sendable sendable_;
  std::ptrdiff_t descriptors_ = 0;
  std::size_t runs_ = 0;
};

}  // namespace vesko
