#include <algorithm>
#include <cstddef>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "Platform/process/DescriptorLimit.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "tests/hostile/HostileFixture.h"
#include "tests/support/IsSoon.h"
#include "tests/support/QueueTasks.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::header;
using StreamBytes::metadata;

TEST_F(HostileTest, TheLongestSilentTransferGivesWay) {
  server_->maximumIncomingTransfers = 3;
  const auto connectAndSend = [&](std::string_view stream, const char* event) {
    const auto before = recorder_->count(event);
    auto sender = connect();
    EXPECT_TRUE(sender.send(stream));
    EXPECT_TRUE(recorder_->waitFor(event, before + 1));
    return sender;
  };
  const auto start = metadata(2, 2) + file("a", "1");
  const auto expectGone = [&](RawConnection& sender) {
    EXPECT_EQ(sender.receiveAll(), "");
    EXPECT_EQ(sender.error(), std::errc::connection_reset);
  };
  auto first = connectAndSend(start, "Finished file");
  auto second = connectAndSend(start, "Finished file");
  auto third = connectAndSend(start.substr(0, 15), "[start]");
  const auto hasUnread = [&] {
    std::promise<bool> answer;
    server_->incomingDispatchQueue()->async(
        [&] { answer.set_value(server_->pendingIncomingTransfers().back()->socket()->hasUnread()); });
    return answer.get_future().get();
  };
  ASSERT_TRUE(isSoon([&] { return !hasUnread(); })) << "what waits to be read would count";
  auto fourth = connectAndSend("", "[start]");
  expectGone(third);
  const auto outcome = recorder_->lastOutcome();
  EXPECT_EQ(outcome.reason, VeskoFailureReason::limit);
  EXPECT_EQ(outcome.description(), "too many connections at once, and this one had been silent for longest");

  auto fifth = connectAndSend(metadata(1, 1), "Incoming transfer elements= 1");
  expectGone(fourth);
  ASSERT_TRUE(first.send(header("b", 1)));
  ASSERT_TRUE(recorder_->waitFor("Incoming item size", 3));
  auto sixth = connectAndSend("", "[start]");
  expectGone(second);
  ASSERT_TRUE(first.send("2"));
  ASSERT_TRUE(fifth.send(file("c", "3")));
  ASSERT_TRUE(recorder_->waitFor("[outcome finished]", 2));
  EXPECT_EQ(recorder_->count("[outcome failed"), 3U);

  for (int i = 0; i < 2; ++i) EXPECT_TRUE(connectAndSend("", "[start]").send("x")) << "those that ended take no room";
  EXPECT_EQ(recorder_->count("[outcome failed limit]"), 3U);
}

TEST_F(HostileTest, WhatWaitsToBeReadIsNoSilence) {
  server_->maximumIncomingTransfers = 2;
  auto sender = connect();
  ASSERT_TRUE(recorder_->waitFor("[start]"));
  std::vector<RawConnection> others;
  {
    const HeldQueue held(server_->incomingDispatchQueue());
    for (int i = 0; i < 4; ++i) others.push_back(connect());
    ASSERT_TRUE(sender.send(metadata(1, 2) + file("a", "12")));
  }
  EXPECT_TRUE(recorder_->waitFor("[outcome finished]"));
}

TEST_F(HostileTest, AsManyTransfersAsTheDescriptorsAreEnoughFor) {
  EXPECT_GE(server_->maximumIncomingTransfers, 1U);
  EXPECT_LE(server_->maximumIncomingTransfers, 512U);
  EXPECT_LE(server_->maximumIncomingTransfers * 6, DescriptorLimit::current());
}

}  // namespace
}  // namespace vesko
