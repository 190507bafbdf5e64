#include "hosts/common/EventJson.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace vesko {
namespace {

TEST(EventJson, WritesEachEventAsOneLineWithItsFieldsInOrder) {
  using enum TransferDirection;
  const struct {
    Event event;
    const char* line;
  } cases[] = {
      {ReadyEvent{4644, "/d"}, R"({"event":"ready","version":1,"tcpPort":4644,"downloads":"/d"})"},
      {StartupFailureEvent{"tcp", 4644, "m", "r"},
       R"({"event":"startupFailure","endpoint":"tcp","port":4644,"message":"m","reason":"r"})"},
      {TransferStartedEvent{1, in, "192.0.2.7", ""},
       R"({"event":"transferStarted","transfer":1,"direction":"in","ip":"192.0.2.7"})"},
      {TransferStartedEvent{2, out, "192.0.2.7", "Photos"},
       R"({"event":"transferStarted","transfer":2,"direction":"out","ip":"192.0.2.7"})"},
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

}  // namespace
}  // namespace vesko
