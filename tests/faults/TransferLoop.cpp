#include "tests/faults/TransferLoop.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "VeskoKit/ReceivedItemStorage.h"

namespace vesko {
namespace {

using enum VeskoFailureReason;

/// More calls than any transfer here makes.
constexpr std::size_t tooMany = 10'000;

bool isDisturbance(int error) {
  return error == EINTR || error == SystemFaults::fewerBytes || error == ENFILE || error == EINVAL;
}

}  // namespace

void TransferLoop::begin(const std::string& name) {
  sendable_ = sendable(name);
  SystemFaults none({});
  startServer(none);
  const auto outcomes = send(sendable_, none);
  EXPECT_TRUE(outcomes.areFinished()) << outcomes.description();
  expectConsistent(sendable_, outcomes);
  descriptors_ = openDescriptors();
}

bool TransferLoop::strikes(const Fault& fault) {
  if (removesDownloads_) std::filesystem::remove(downloads());
  std::optional<Outcomes> outcomes;
  bool hasStruck = false;
  {
    SystemFaults faults({fault, standing_});
    outcomes = send(sendable_, faults);
    hasStruck = faults.strikes() > 0;
  }
  ++runs_;
  SCOPED_TRACE(outcomes->description());
  if (removesDownloads_) folder_.makeFolder("downloads");
  expectConsistent(sendable_, *outcomes);
  // What could not be removed for as long as the fault lasted is, now.
  if (fault.count == SystemFaults::forever) ReceivedItemStorage::sweep(downloads());
  EXPECT_EQ(folder_.entries("downloads"), std::vector<std::string>()) << "litter";
  EXPECT_TRUE(waitForDescriptors(descriptors_));
  EXPECT_TRUE(outcomes->areFinished() || (hasStruck && !isDisturbance(fault.error)));
  expectCause(fault, *outcomes);
  expectNextTransferWorks();
  return hasStruck;
}

void TransferLoop::expectCause(const Fault& fault, const Outcomes& outcomes) const {
  const bool isOfSpace = fault.error == ENOSPC || fault.error == EDQUOT;
  const auto sent = outcomes.sent.reason;
  const auto received = outcomes.received ? outcomes.received->reason : none;
  EXPECT_TRUE(received == none || received == connectionLost || received == (isOfSpace ? noSpace : storage));
  EXPECT_TRUE(sent == none || sent == connectionLost || (!isOfSpace && (sent == notReadable || sent == unreachable)));
  if (sent == none && received == none) return;
  // A connection that cannot be watched once it is accepted has nobody yet who could tell.
  if (!outcomes.received && std::ranges::find(fault.calls, "epoll_ctl") != fault.calls.end()) return;
  const bool senderTells = outcomes.sent.error.value() == fault.error;
  const bool receiverTells = outcomes.received && outcomes.received->error.value() == fault.error;
  EXPECT_TRUE(senderTells || receiverTells) << "nobody tells the cause";
}

void TransferLoop::failEachInTurn(int error, const std::vector<std::string_view>& calls, std::size_t count) {
  for (std::size_t first = 1; first < tooMany && !HasFailure(); ++first) {
    SCOPED_TRACE(testing::Message() << calls.front() << " number " << first << ": " << std::strerror(error));
    if (!strikes({error, calls, first, count})) return;
  }
}

}  // namespace vesko
