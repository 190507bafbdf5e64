#include "VeskoKit/VeskoIncomingTransfer.h"

#include "Platform/SocketError.h"
#include "tests/socket/VeskoServerFixture.h"

namespace vesko {
namespace {

using namespace std::string_literals;
using StreamBytes::file;
using StreamBytes::folder;
using StreamBytes::header;
using StreamBytes::metadata;
using StreamBytes::textName;

constexpr std::uint64_t mebibyte = 1024 * 1024;

/// The lines of a name of `length` bytes, which is read byte by byte up to the 0x00 behind it.
void appendNameReads(std::vector<std::string>& events, std::size_t length) {
  events.insert(events.end(), length + 1, "Incoming didRead 1 4");
}

TEST_F(VeskoServerTest, ReceivesAFolderWithAFile) {
  Strings expected = {"[start]", "Incoming didRead 16 1", "Incoming transfer elements= 2 5",
                      "[progress 2 0 5 0 none none]"};
  appendNameReads(expected, 1);
  expected.insert(expected.end(), {
                                      "Incoming path:  STORAGE/A",
                                      "[progress 2 0 5 0 A STORAGE/A]",
                                      "Incoming didRead 8 2",
                                      "Incoming item size:  18446744073709551615",
                                      "Finished file",
                                      "[progress 2 1 5 0 A STORAGE/A]",
                                  });
  appendNameReads(expected, 7);
  expected.insert(expected.end(), {
                                      "Incoming path:  STORAGE/A/b.txt",
                                      "[progress 2 1 5 0 A/b.txt STORAGE/A/b.txt]",
                                      "Incoming didRead 8 2",
                                      "Incoming item size:  5",
                                      "Incoming didRead 5 3",
                                      "Incoming chunk:  5 5 5",
                                      "[progress 2 1 5 5 A/b.txt STORAGE/A/b.txt]",
                                      "Finished file",
                                      "[progress 2 2 5 5 A/b.txt STORAGE/A/b.txt]",
                                      "Finished transfer",
                                      "[saved DOWNLOADS/A]",
                                      "[finished]",
                                      "[outcome finished]",
                                  });
  for (const std::size_t piece : {std::size_t{1}, std::size_t{5}, std::string::npos}) {
    SCOPED_TRACE(piece);
    ASSERT_TRUE(receive(StreamBytes::folderWithFile(), "finished", piece));
    EXPECT_EQ(events(true), expected);
    EXPECT_EQ(delivered(), Strings{"A"});
    EXPECT_EQ(folder_.read("downloads/A/b.txt"), "hello");
    clear();
  }
}

TEST_F(VeskoServerTest, ReceivesWhatIsNoPlainFile) {
  ASSERT_TRUE(receive(metadata(0, 7), "finished"));
  EXPECT_EQ(events(), (Strings{"[start]", "Incoming transfer elements= 0 7", "[progress 0 0 7 0 none none]",
                               "Finished transfer", "[finished]", "[outcome finished]"}));
  const std::string text(textName);
  ASSERT_TRUE(receive(metadata(1, 5) + file(text, "caf\xc3\xa9"), "finished"));
  EXPECT_EQ(events(), (Strings{"[start]", "Incoming transfer elements= 1 5", "[progress 1 0 5 0 none none]",
                               "[progress 1 0 5 0 " + text + " ]", "Incoming item size:  5", "Incoming chunk:  5 5 5",
                               "[progress 1 0 5 5 " + text + " ]", "Finished file", "[progress 1 1 5 5 " + text + " ]",
                               "[text caf\xc3\xa9]", "Finished transfer", "[finished]", "[outcome finished]"}));
  ASSERT_TRUE(receive(metadata(1, 0) + file(text, ""), "finished"));
  EXPECT_EQ(recorder_->startingWith("[text"), Strings{"[text ]"});
  EXPECT_EQ(delivered(), Strings());
  ASSERT_TRUE(receive(metadata(1, 0) + file("empty", ""), "finished"));
  EXPECT_EQ(events(), (Strings{"[start]", "Incoming transfer elements= 1 0", "[progress 1 0 0 0 none none]",
                               "Incoming path:  STORAGE/empty", "[progress 1 0 0 0 empty STORAGE/empty]",
                               "Incoming item size:  0", "Finished file", "[progress 1 1 0 0 empty STORAGE/empty]",
                               "Finished transfer", "[saved DOWNLOADS/empty]", "[finished]", "[outcome finished]"}));
  EXPECT_EQ(delivered(), Strings{"empty"});
}

TEST_F(VeskoServerTest, PutsElementsWhereTheirNamesSay) {
  ASSERT_TRUE(receive(metadata(2, 2) + file("x//./y/", "1") + file("x/" + std::string(textName), "2"), "finished"));
  EXPECT_EQ(folder_.read("downloads/x/y"), "1");
  EXPECT_EQ(folder_.read("downloads/x/" + std::string(textName)), "2");
  clear();
  ASSERT_TRUE(receive(metadata(2, 1) + file(textName, "1") + folder("x"), "finished"));
  ASSERT_EQ(delivered().size(), 1U);
  EXPECT_EQ(folder_.read("downloads/" + delivered().front() + "/" + std::string(textName)), "1")
      << "an element among others is a file of that name";
  clear();
  std::string longest = "0123456789abcdef";
  while (longest.size() < 4096) longest += "/123456789abcdef";
  ASSERT_TRUE(receive(metadata(1, 1) + file(longest, "1"), "finished")) << "256 components, 4096 bytes";
  EXPECT_EQ(delivered(), Strings{"0123456789abcdef"});
}

TEST_F(VeskoServerTest, RefusesStreams) {
  std::string deep = "0";
  for (int i = 0; i < 256; ++i) deep += "/1";
  std::vector<std::pair<std::string, std::string>> cases = {
      {metadata(1, 1) + file(textName, "\xff"), "invalidText"},
      {metadata(1, 1) + header(textName, 64 * mebibyte + 1), "limit"},
  };
  const auto addNames = [&](const std::string& reason, const Strings& names, std::uint64_t size = 1) {
    const auto start = metadata(3, 9) + file("whole", "1234");
    for (const std::string& name : names) cases.emplace_back(start + header(name, size), reason);
  };
  addNames("unsafeName", {"", ".", "//", "..", "../sentinel", "a/../../sentinel", folder_.path("sentinel")});
  addNames("unsafeName", {"a/.."}, StreamBytes::folderSize);
  addNames("invalidText", {"a\xff", "a\xc3"});
  addNames("limit", {std::string(4097, 'x'), deep});
  addNames("noSpace", {"large"}, std::uint64_t{1} << 62);
  for (const auto& [stream, reason] : cases) {
    SCOPED_TRACE(testing::PrintToString(stream.substr(33, 40)));
    recorder_->take();
    RawConnection sender = connect();
    sender.send(stream);
    ASSERT_TRUE(endsWith("failed " + reason));
    EXPECT_EQ(sender.receiveAll(), "");
    EXPECT_EQ(sender.error(), std::errc::connection_reset);
    EXPECT_EQ(delivered(), Strings());
    EXPECT_EQ(recorder_->count("[finished]") + recorder_->count("[saved") + recorder_->count("[text"), 0U);
  }
}

TEST_F(VeskoServerTest, ReadsBodiesInStretches) {
  const struct {
    std::uint64_t size;
    Strings chunks;
  } cases[] = {
      {10'485'760, {"Incoming chunk:  10485760 10485760 10485760"}},
      {10'485'761, {"Incoming chunk:  10485760 10485760 10485761", "Incoming chunk:  1 10485761 10485761"}},
      {50 * mebibyte,
       {"Incoming chunk:  10485760 10485760 52428800", "Incoming chunk:  10485760 20971520 52428800",
        "Incoming chunk:  10485760 31457280 52428800", "Incoming chunk:  10485760 41943040 52428800",
        "Incoming chunk:  10485760 52428800 52428800"}},
  };
  for (const auto& [size, chunks] : cases) {
    SCOPED_TRACE(size);
    ASSERT_TRUE(receive(metadata(1, size) + file("file", std::string(size, 'x')), "finished"));
    EXPECT_EQ(recorder_->startingWith("Incoming chunk"), chunks);
    EXPECT_EQ(std::filesystem::file_size(folder_.path("downloads/file")), size);
    std::uint64_t before = 0;
    std::size_t inside = 0;
    const std::string start = "[progress 1 0 " + std::to_string(size) + " ";
    for (const std::string& report : recorder_->startingWith(start)) {
      const std::uint64_t finished = std::stoull(report.substr(start.size()));
      const bool isInside = finished % 10'485'760 != 0 && finished != size;
      EXPECT_GE(finished, before + (isInside ? 1'024'000 : 0)) << "reports from within a read are not more frequent";
      inside += isInside ? 1 : 0;
      before = finished;
    }
    EXPECT_GE(inside, size / 10'485'760 * 6) << "a report comes with the bytes that pass the interval";
    clear();
  }

  recorder_->take();
  server_->pruneFinishedTransfers();
  RawConnection sender = connect();
  sender.send(metadata(1, 50 * mebibyte) + header("file", 50 * mebibyte) + "x");
  ASSERT_TRUE(recorder_->waitFor("Incoming item size"));
  waitForTasks(server_->incomingDispatchQueue());
  EXPECT_EQ(server_->pendingIncomingTransfers().at(0)->queuedSize, 41'943'040U) << "four reads at the start";
  sender.send(std::string(10 * mebibyte, 'x'));
  ASSERT_TRUE(recorder_->waitFor("Incoming chunk"));
  waitForTasks(server_->incomingDispatchQueue());
  EXPECT_EQ(server_->pendingIncomingTransfers().at(0)->queuedSize, 50 * mebibyte) << "one for each that is complete";
}

TEST_F(VeskoServerTest, AStreamThatIsCutOffLeavesNothing) {
  const std::string stream = StreamBytes::folderWithFile();
  for (const std::size_t length : {0U, 7U, 16U, 17U, 20U, 26U, 30U, 34U, 42U, 46U}) {
    for (const bool resets : {false, true}) {
      SCOPED_TRACE(testing::Message() << length << (resets ? " reset" : " closed"));
      recorder_->take();
      RawConnection sender = connect();
      sender.send(std::string_view(stream).substr(0, length));
      resets ? sender.reset() : sender.close();
      ASSERT_TRUE(endsWith("failed connectionLost"));
      const auto error = recorder_->lastOutcome().error;
      EXPECT_TRUE(resets ? error == std::errc::connection_reset : error == SocketErrc::endOfStream) << error;
      EXPECT_EQ(delivered(), Strings());
      EXPECT_EQ(recorder_->count("[finished]"), 0U);
    }
  }
}

TEST_F(VeskoServerTest, WhatFollowsTheLastElementIsNotRead) {
  ASSERT_TRUE(receive(StreamBytes::folderWithFile() + "more\0and more"s, "finished"));
  EXPECT_EQ(folder_.read("downloads/A/b.txt"), "hello");

  RawConnection sender = connect();
  sender.send(metadata(0, 0));
  EXPECT_EQ(sender.receiveAll(), "");
  EXPECT_FALSE(sender.error()) << "the connection is closed in good order";
}

TEST_F(VeskoServerTest, ASenderThatStopsTimesOut) {
  const struct {
    std::string stream;
    std::string awaited;
    std::chrono::seconds bound;
  } cases[] = {
      {"", "[start]", std::chrono::seconds(5)},
      {metadata(1, 5), "Incoming transfer", std::chrono::seconds(5)},
      {metadata(1, 5) + "nam", "Incoming didRead 1 4", std::chrono::seconds(5)},
      {metadata(1, 5) + "name\0\5\0"s, "Incoming path", std::chrono::seconds(5)},
      {metadata(1, 5) + header("name", 5) + "1234", "Incoming item size", std::chrono::seconds(60)},
  };
  for (const auto& [stream, awaited, bound] : cases) {
    SCOPED_TRACE(awaited);
    recorder_->take();
    RawConnection sender = connect();
    ASSERT_TRUE(sender.send(stream));
    ASSERT_TRUE(recorder_->waitFor(awaited, awaited.ends_with("1 4") ? 3 : 1));
    ASSERT_TRUE(clock_->waitForAlarm());
    waitForTasks(server_->incomingDispatchQueue());
    clock_->advance(bound - std::chrono::milliseconds(100));
    waitForTasks(server_->incomingDispatchQueue());
    EXPECT_EQ(recorder_->count("[outcome"), 0U);
    clock_->advance(std::chrono::milliseconds(100));
    ASSERT_TRUE(endsWith("failed timedOut"));
    EXPECT_EQ(delivered(), Strings());
  }
}

TEST_F(VeskoServerTest, AnElementThatCannotBeCreatedIsDropped) {
  const std::string tooLong(256, 'x');
  const std::string stream = metadata(4, 0) + file("x/" + tooLong, "dropped") + file("x/a", "1") + folder(tooLong) +
                             file("x/a/below a file", "dropped");
  ASSERT_TRUE(receive(stream, "finished"));
  EXPECT_EQ(delivered(), Strings{"x"});
  EXPECT_EQ(folder_.entries("downloads/x"), Strings{"a"});
  EXPECT_EQ(folder_.read("downloads/x/a"), "1");
  const VeskoTransferOutcome outcome = recorder_->lastOutcome();
  EXPECT_EQ(outcome.droppedCount, 3U);
  Strings dropped;
  for (const auto& element : outcome.dropped) dropped.push_back(element.element);
  EXPECT_EQ(dropped, (Strings{"x/" + tooLong, tooLong, "x/a/below a file"}));
  EXPECT_EQ(outcome.dropped.at(0).error, std::errc::filename_too_long);
}

TEST_F(VeskoServerTest, AFailedTransferKeepsWhatArrivedWholeIfWanted) {
  server_->keepPartial = true;
  ASSERT_TRUE(receive(metadata(3, 9) + file("x/whole", "1234") + folder("y") + header("x/half", 5) + "12",
                      "failed connectionLost"));
  ASSERT_EQ(delivered().size(), 1U);
  const std::string kept = "downloads/" + delivered().front();
  EXPECT_EQ(recorder_->lastOutcome().keptPath, folder_.path(kept));
  EXPECT_EQ(folder_.entries(kept), (Strings{"x", "y"}));
  EXPECT_EQ(folder_.entries(kept + "/x"), Strings{"whole"});
  clear();
  ASSERT_TRUE(receive(metadata(1, 5) + header("half", 5) + "12", "failed connectionLost"));
  EXPECT_EQ(recorder_->lastOutcome().keptPath, "");
  EXPECT_EQ(delivered(), Strings());
}

TEST_F(VeskoServerTest, IncomingTransfersAreCancelled) {
  RawConnection sender = connect();
  sender.send(metadata(2, 9) + file("whole", "1234") + header("half", 5) + "12");
  ASSERT_TRUE(recorder_->waitFor("Incoming item size", 2));
  const auto transfer = server_->pendingIncomingTransfers().at(0);
  transfer->cancel();
  transfer->cancel();
  ASSERT_TRUE(endsWith("cancelled"));
  (void)sender.receiveAll();
  EXPECT_EQ(sender.error(), std::errc::connection_reset);
  EXPECT_EQ(delivered(), Strings());
  EXPECT_TRUE(transfer->hasEnded());
}

}  // namespace
}  // namespace vesko
