#include "VeskoKit/VeskoIncomingTransfer.h"

#include "tests/socket/library/VeskoServerFixture.h"

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

TEST_F(VeskoServerTest, WhatFollowsTheLastElementIsNotRead) {
  ASSERT_TRUE(receive(StreamBytes::folderWithFile() + "more\0and more"s, "finished"));
  EXPECT_EQ(folder_.read("downloads/A/b.txt"), "hello");

  RawConnection sender = connect();
  sender.send(metadata(0, 0));
  EXPECT_EQ(sender.receiveAll(), "");
  EXPECT_FALSE(sender.error()) << "the connection is closed in good order";
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
