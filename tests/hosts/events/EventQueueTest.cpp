#include "hosts/common/events/EventQueue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hosts/common/events/EventJson.h"

namespace vesko {
namespace {

PeerView peer(const std::string& key, const std::string& signature = "") { return {key, key, 1, signature, "", {}}; }

ProgressEvent progress(TransferId id, std::uint64_t bytes) { return {id, 1, 0, 9, bytes, ""}; }

std::vector<std::string> linesOf(std::vector<Event> events) {
  std::vector<std::string> lines;
  lines.reserve(events.size());
  for (const auto& event : events) lines.push_back(jsonLine(event));
  return lines;
}

std::vector<std::string> waitingIn(EventQueue& queue) {
  std::vector<std::string> lines;
  while (const auto event = queue.nextWaiting()) lines.push_back(jsonLine(*event));
  return lines;
}

void fill(EventQueue& queue, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) queue.publish(TextReceivedEvent{i + 100, ""});
}

/// What waits of `published` behind `count` others, which are all still there.
std::vector<std::string> waitingBehind(std::size_t count, EventQueue& queue, const std::vector<Event>& published) {
  fill(queue, count);
  for (const auto& event : published) queue.publish(event);
  for (std::size_t i = 0; i < count; ++i) EXPECT_TRUE(queue.nextWaiting());
  return waitingIn(queue);
}

std::vector<std::string> waitingBehind(std::size_t count, const std::vector<Event>& published) {
  EventQueue queue;
  return waitingBehind(count, queue, published);
}

TEST(EventQueue, KeepsOfProgressTheNewest) {
  const Event text = TextReceivedEvent{1, "x"};
  EXPECT_EQ(waitingBehind(0, {progress(1, 1), progress(2, 2), progress(1, 3)}),
            linesOf({progress(1, 3), progress(2, 2)}));
  const std::vector<Event> apart{progress(1, 1), text, text, progress(1, 3)};
  EXPECT_EQ(waitingBehind(EventQueue::farBehind, apart), linesOf(apart));
}

TEST(EventQueue, FarBehindKeepsOfMachinesTheNewest) {
  const Event here = PeerAppearedEvent{peer("a")};
  const Event renamed = PeerUpdatedEvent{peer("a", "new")};
  const Event gone = PeerDisappearedEvent{peer("a")};
  const Event other = PeerAppearedEvent{peer("b")};
  struct Case {
    std::vector<Event> published;
    std::vector<Event> waiting;
  };
  for (const auto& [published, waiting] : std::initializer_list<Case>{
           {{here, other, renamed}, {PeerAppearedEvent{peer("a", "new")}, other}},
           {{PeerUpdatedEvent{peer("a", "old")}, other, renamed}, {renamed, other}},
           {{renamed, other, gone}, {gone, other}},
           {{here, other, renamed, gone}, {other}},
           {{gone, here, gone, here}, {gone, here}},
           {{gone, here, gone}, {gone}},
       }) {
    EXPECT_EQ(waitingBehind(EventQueue::farBehind, published), linesOf(waiting))
        << testing::PrintToString(linesOf(published));
    EXPECT_EQ(waitingBehind(EventQueue::farBehind - published.size(), published), linesOf(published));
  }
}

TEST(EventQueue, WhatHasBeenTakenIsTold) {
  EventQueue queue;
  const std::vector<Event> first{PeerAppearedEvent{peer("a")}, progress(1, 1)};
  const std::vector<Event> second{PeerDisappearedEvent{peer("a")}, progress(1, 2)};
  EXPECT_EQ(waitingBehind(EventQueue::farBehind, queue, first), linesOf(first));
  EXPECT_EQ(waitingBehind(EventQueue::farBehind, queue, second), linesOf(second));
}

TEST(EventQueue, IsOverwhelmedUntilItIsReadOn) {
  const auto expectLimit = [](std::size_t limit, const Event& event) {
    EventQueue queue;
    for (std::size_t i = 1; i < limit; ++i) queue.publish(event);
    EXPECT_FALSE(queue.isOverwhelmed()) << limit;
    queue.publish(event);
    EXPECT_TRUE(queue.isOverwhelmed()) << limit;
    EXPECT_TRUE(queue.nextWaiting());
    EXPECT_FALSE(queue.isOverwhelmed()) << limit;
  };
  expectLimit(EventQueue::maximumWaiting, ItemsSavedEvent{1, "x"});
  expectLimit(EventQueue::maximumText >> 20U, TextReceivedEvent{1, std::string(std::size_t{1} << 20U, 'x')});
}

TEST(EventQueue, TakesOnlyWhatIsWanted) {
  EventQueue queue([](const Event& event) { return !std::holds_alternative<PeerUpdatedEvent>(event); });
  queue.publish(PeerAppearedEvent{peer("a")});
  queue.publish(PeerUpdatedEvent{peer("a")});
  queue.publish(PeerDisappearedEvent{peer("a")});
  EXPECT_EQ(waitingIn(queue), linesOf({PeerAppearedEvent{peer("a")}, PeerDisappearedEvent{peer("a")}}));
}

}  // namespace
}  // namespace vesko
