#include "hosts/common/events/EventJson.h"

#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

namespace vesko {
namespace {

PeerView somePeer() {
  using namespace std::chrono_literals;
  return {"k", "192.0.2.7", 4644, "a\n\"b\"", "png", std::chrono::sys_days(2026y / 11 / 23) + 1h + 43min + 52s};
}

const std::string fieldsOfSomePeer =
    R"("key":"k","ip":"192.0.2.7","port":4644,"systemSignature":"a\n\"b\"","avatar":"png",)"
    "\"since\":\"2026-11-23T01:43:52Z\"";

TEST(EventJson, WritesEachEventAsOneLineWithItsFieldsInOrder) {
  using enum TransferDirection;
  const struct {
    Event event;
    std::string line;
  } cases[] = {
      {ReadyEvent{1, 2, 3, "/d"},
       R"({"event":"ready","version":1,"udpPort":1,"tcpPort":2,"httpPort":3,"downloads":"/d"})"},
      {StartupFailureEvent{"tcp", 4644, "m", "r"},
       R"({"event":"startupFailure","endpoint":"tcp","port":4644,"message":"m","reason":"r"})"},
      {PeerAppearedEvent{somePeer()}, R"({"event":"peerAppeared",)" + fieldsOfSomePeer + "}"},
      {PeerUpdatedEvent{somePeer()}, R"({"event":"peerUpdated",)" + fieldsOfSomePeer + "}"},
      {PeerDisappearedEvent{somePeer()}, R"({"event":"peerDisappeared","key":"k"})"},
      {TransferStartedEvent{1, in, "192.0.2.7", ""},
       R"({"event":"transferStarted","transfer":1,"direction":"in","ip":"192.0.2.7"})"},
      {TransferStartedEvent{2, out, "192.0.2.7", "Photos", 4644, "Sam \"S\""},
       R"({"event":"transferStarted","transfer":2,"direction":"out","ip":"192.0.2.7","port":4644,)"
       R"("systemSignature":"Sam \"S\""})"},
      {ProgressEvent{1, 5, 2, ~0ULL, 20, "a/b"},
       R"({"event":"progress","transfer":1,"elementCount":5,"finishedElements":2,"totalSize":18446744073709551615,)"
       R"("finishedBytes":20,"name":"a/b"})"},
      {TextReceivedEvent{1, "a\n\"b\""}, R"({"event":"textReceived","transfer":1,"text":"a\n\"b\""})"},
      {ItemsSavedEvent{1, ""}, R"({"event":"itemsSaved","transfer":1,"path":""})"},
      {ItemsSavedEvent{1, "/d/\xff\xc3\xa9"}, "{\"event\":\"itemsSaved\",\"transfer\":1,\"path\":\"/d/\ufffd\u00e9\"}"},
      {FinishedEvent{1, 4, 100, 1.5, 1},
       R"({"event":"finished","transfer":1,"elements":4,"bytes":100,"seconds":1.5,"skipped":1})"},
      {FailedEvent{1, VeskoFailureReason::connectionLost, "m", "", true, ""},
       R"({"event":"failed","transfer":1,"reason":"connectionLost","message":"m"})"},
      {FailedEvent{1, VeskoFailureReason::noSpace, "m", "a", true, "/d/x"},
       R"({"event":"failed","transfer":1,"reason":"noSpace","message":"m","element":"a","keptPath":"/d/x"})"},
      {SkippedEvent{1, in, "a", VeskoFailureReason::storage, "m"},
       R"({"event":"skipped","transfer":1,"element":"a","reason":"storage","message":"m"})"},
      {SkippedEvent{1, out, "/a", VeskoFailureReason::notFound, "m"},
       R"({"event":"skipped","transfer":1,"path":"/a","reason":"notFound","message":"m"})"},
  };
  for (const auto& [event, line] : cases) EXPECT_EQ(jsonLine(event), line);
}

TEST(EventJson, KeepsEveryCharacterOfATextOnOneLine) {
  std::string text("\0\x01\n\r\t\x1b[2J\x7f\u2028\u202e", 16);
  text += "\U0001F600";
  const std::string line = jsonLine(TextReceivedEvent{1, text});
  EXPECT_EQ(line.find_first_of("\n\r\x1b"), std::string::npos);
  EXPECT_EQ(nlohmann::json::parse(line)["text"], text);
}

TEST(EventJson, ReadsWhatItWritesOfPeers) {
  using std::chrono::system_clock;
  PeerView early = somePeer();
  early.since = {};
  PeerView first = somePeer();
  first.since = std::chrono::ceil<std::chrono::seconds>(system_clock::time_point::min());
  PeerView last = somePeer();
  last.since = std::chrono::floor<std::chrono::seconds>(system_clock::time_point::max());
  for (const auto& peers :
       {std::vector<PeerView>{}, std::vector{somePeer()}, std::vector{somePeer(), early}, std::vector{first, last}}) {
    EXPECT_EQ(parsePeers(jsonArray(peers)), peers);
  }
  PeerView gone;
  gone.key = "k";
  EXPECT_EQ(std::get<PeerAppearedEvent>(*parsePeerEvent(jsonLine(PeerAppearedEvent{early}))).peer, early);
  EXPECT_EQ(std::get<PeerUpdatedEvent>(*parsePeerEvent(jsonLine(PeerUpdatedEvent{early}))).peer, early);
  EXPECT_EQ(std::get<PeerDisappearedEvent>(*parsePeerEvent(jsonLine(PeerDisappearedEvent{early}))).peer, gone);
  EXPECT_EQ(parsePeerEvent(jsonLine(ReadyEvent{1, 2, 3, "/"})), std::nullopt);
}

TEST(EventJson, TakesNothingElseForAPeer) {
  const std::string good = "{" + fieldsOfSomePeer + "}";
  ASSERT_TRUE(parsePeers("[" + good + "]"));
  const std::pair<std::string, std::vector<std::string>> changes[] = {
      {"4644", {"65536", "-1", "\"1\"", "1.5"}},
      {"192.0.2.7", {"192.0.2.7:1", "host"}},
      {"\"png\"", {"null"}},
      {"\"k\"", {"[]"}},
      {"2026-11-23", {"2026-02-30", "9999-01-01", "0001-01-01"}},
      {"01:43:52Z", {"24:00:00Z", "01:60:52Z", "01:43:60Z", "0:-43:52Z", "01:43:52"}},
      {"systemSignature", {"s"}},
  };
  for (const auto& [from, all] : changes) {
    for (const auto& to : all) {
      std::string bad = good;
      bad.replace(bad.find(from), from.size(), to);
      EXPECT_EQ(parsePeers("[" + bad + "]"), std::nullopt) << bad;
      EXPECT_EQ(parsePeerEvent("{\"event\":\"peerUpdated\"," + bad.substr(1)), std::nullopt) << bad;
    }
  }
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  for (const std::string& text :
       {std::string(), good, "[" + good, std::string("[1]"), std::string("[\"\xff\"]"), deep}) {
    EXPECT_EQ(parsePeers(text), std::nullopt) << text.substr(0, 100);
    EXPECT_EQ(parsePeerEvent(text), std::nullopt) << text.substr(0, 100);
  }
  EXPECT_EQ(parsePeerEvent(R"({"event":"peerDisappeared","key":1})"), std::nullopt);
}

}  // namespace
}  // namespace vesko
