#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tests/hostile/HostileFixture.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::folder;
using StreamBytes::metadata;
using StreamBytes::repeated;

const std::string storageName = ".VeskoTransferIntermediateStorage20260102030405" + std::string(32, 'z');

class HostileNamesTest : public HostileTest {
 protected:
  /// Sends elements, those that end in "/" as folders and the others as files that hold their own number.
  [[nodiscard]] static std::string streamOf(const Strings& names) {
    std::string stream = metadata(names.size(), 0);
    for (std::size_t i = 0; i < names.size(); ++i) {
      const bool isFolder = names[i].ends_with('/');
      stream += isFolder ? folder(names[i]) : file(names[i], std::to_string(i));
    }
    return stream;
  }

  /// What was delivered, below the folder "several" if that is how it came.
  [[nodiscard]] Tree deliveredElements() const {
    const auto names = delivered();
    const bool isSeveral = names.size() == 1 && names.front().starts_with("Received by Vesko at ");
    return folder_.tree("downloads/" + (isSeveral ? names.front() : ""));
  }
};

TEST_F(HostileNamesTest, WhatCouldLeadOutIsRefusedBeforeAnythingIsWritten) {
  const struct {
    Strings names;
    std::string reason;
  } cases[] = {
      {{"", ".", "//", "./.", "..", "../sentinel", "a/..", "a/../../sentinel", "a/../", "/", "/etc",
        folder_.path("sentinel"), "x/" + storageName + "/../.."},
       "unsafeName"},
      {{"a\xff", "a\xc3", "\xc0\xaf", "..\xc0\xaf..", "\xed\xa0\x80", "\xf5\x80\x80\x80", "a/\x80"}, "invalidText"},
      {{std::string(4097, 'x'), repeated("x/", 256) + "x", repeated("x/", 257)}, "limit"},
  };
  for (const auto& [names, reason] : cases) {
    for (const auto& name : names) {
      SCOPED_TRACE(testing::PrintToString(name.substr(0, 80)));
      for (const auto& last : {folder(name), file(name, "x")}) {
        recorder_->take();
        auto sender = connect();
        ASSERT_TRUE(sender.send(metadata(3, 9) + file("whole", "1234") + last));
        ASSERT_TRUE(endsWith("failed " + reason));
        (void)sender.receiveAll();
        EXPECT_EQ(sender.error(), std::errc::connection_reset);
        EXPECT_EQ(toldSuccesses(), 0U);
        EXPECT_EQ(delivered(), Strings());
      }
    }
  }
  expectGoodService();
}

TEST_F(HostileNamesTest, ANameThatDoesNotEndIsRefused) {
  recorder_->take();
  auto sender = connect();
  (void)sender.send(metadata(1, 0) + std::string(1024UL * 1024, 'x'));
  ASSERT_TRUE(endsWith("failed limit"));
  EXPECT_EQ(recorder_->count("Incoming didRead 1 4"), 4097U);
  expectGoodService();
}

TEST_F(HostileNamesTest, AnyOtherNameIsKeptAsItCame) {
  Strings names = {
      "a",
      std::string(255, 'x'),
      "..\\..\\sentinel",
      "C:\\sentinel",
      "line\nfeed\r\t\x1b[2J\x01\x7f",
      "\xc2\x85next line",
      "invoice \xe2\x80\xae"
      "fdp.exe",
      "caf\xc3\xa9",
      "cafe\xcc\x81",
      "...",
      " ",
      "dots...",
      "spaces  ",
      "-rf",
      "~",
      "$(reboot)",
      "CON",
      "___VIRNO___TEXT___",
      ".VeskoTransferIntermediateStorage",
  };
  Tree expected;
  for (std::size_t i = 0; i < names.size(); ++i) expected[names[i]] = std::to_string(i);
  ASSERT_TRUE(receive(streamOf(names), "finished"));
  EXPECT_EQ(deliveredElements(), expected);
  EXPECT_EQ(recorder_->lastOutcome().droppedCount, 0U);
  for (const auto& name : names) {
    clear();
    SCOPED_TRACE(name);
    ASSERT_TRUE(receive(streamOf({name, name}), "finished"));
    EXPECT_EQ(deliveredTree(), (Tree{{name, "1"}})) << "alone, the later of two";
  }
  clear();
  expectGoodService();
}

TEST_F(HostileNamesTest, ANameLikeThatOfAStorageFolderIsNeverTakenForOne) {
  for (const auto& name : {storageName, storageName + "/", storageName + "/a"}) {
    SCOPED_TRACE(name);
    ASSERT_TRUE(receive(streamOf({name}), "finished"));
    ASSERT_EQ(delivered().size(), 1U);
    EXPECT_FALSE(delivered().front().starts_with('.')) << "it would be hidden";
    const auto before = deliveredTree();
    const auto next = std::make_shared<VeskoServer>(0, 0, clock_);
    next->downloadsFolder = server_->downloadsFolder;
    next->startServer();
    EXPECT_EQ(deliveredTree(), before) << "the next start would sweep it away";
    clear();
  }
  expectGoodService();
}

}  // namespace
}  // namespace vesko
