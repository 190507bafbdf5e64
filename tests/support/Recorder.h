#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VeskoKit/Log.h"
#include "VeskoKit/VeskoIncomingTransfer.h"
#include "VeskoKit/VeskoTransfer.h"
#include "VeskoKit/VeskoTransferOutcome.h"
#include "tests/support/EventList.h"

namespace vesko {

/// Observer of transfers of both kinds and sink of the log, in one list: log lines as they are printed, calls in
/// brackets, such as "[progress 2 0 5 0]" and "[outcome failed timedOut]".
class Recorder final : public LogSink,
                       public VeskoTransferDelegate,
                       public VeskoIncomingTransferDelegate,
                       public VeskoTransferOutcomeDelegate,
                       public EventList {
 public:
  void write(std::string_view line) override { add(std::string(line.substr(0, line.size() - 1))); }

  void transferDidConnect(VeskoTransfer& transfer) override;
  void transferDidFinish(VeskoTransfer& transfer) override;
  void transferReserved(VeskoTransfer& transfer) override;
  void transferDidProgress(VeskoTransfer& transfer, std::int64_t elementCount, std::int64_t finishedElements,
                           std::uint64_t totalSize, std::uint64_t finishedBytes) override;

  void incomingTransferDidStart(VeskoIncomingTransfer& transfer) override;
  void incomingTransferDidFinish(VeskoIncomingTransfer& transfer) override;
  void incomingTransferReserved(VeskoIncomingTransfer& transfer) override;
  void incomingTransferDidProgress(VeskoIncomingTransfer& transfer, std::uint64_t elementCount,
                                   std::uint64_t finishedElements, std::uint64_t totalSize, std::uint64_t finishedBytes,
                                   const std::optional<std::string>& currentName,
                                   const std::optional<std::string>& currentPath) override;
  void incomingTransferDidReceiveText(VeskoIncomingTransfer& transfer, const std::string& text) override;
  void incomingTransferDidSaveItems(VeskoIncomingTransfer& transfer, const std::string& path) override;

  void transferDidEnd(VeskoTransfer& transfer, const VeskoTransferOutcome& outcome) override;
  void incomingTransferDidEnd(VeskoIncomingTransfer& transfer, const VeskoTransferOutcome& outcome) override;

  /// Of the transfer that ended last.
  [[nodiscard]] VeskoTransferOutcome lastOutcome() const;

 private:
  void record(const VeskoTransferOutcome& outcome);

  mutable std::mutex mutex_;
  VeskoTransferOutcome lastOutcome_;
};

}  // namespace vesko
