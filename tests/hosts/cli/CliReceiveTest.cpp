#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>

#include "tests/hosts/cli/CliFixture.h"
#include "tests/support/IsSoon.h"
#include "tests/support/StreamBytes.h"

namespace vesko {
namespace {

namespace Bytes = StreamBytes;

/// Two elements, of which the second one's body has only begun.
std::string unfinishedStream() {
  return Bytes::metadata(2, 1005) + Bytes::file("whole", "hello") + Bytes::header("part", 1000) + "x";
}

class CliReceiveTest : public CliTest {
 protected:
  /// Sends a stream, waits for the receiver to be through with it, and returns how the program ended.
  Result receiveOnce(const std::string& stream, const Arguments& more) {
    Arguments arguments{"--once"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const auto receiver = startReceiver(arguments);
    auto connection = RawConnection::to(port_);
    connection.send(stream);
    connection.close();
    return resultOf(*receiver);
  }

  /// A receiver that a shell starts once it has done `before`.
  std::unique_ptr<Process> startInShell(const std::string& before) {
    port_ = RawListener(false).port();
    auto setup = setupFor({"receive", "--json", "--dir", folder_.makeFolder("in"), "--port", std::to_string(port_)});
    setup.arguments.insert(setup.arguments.begin(), {"/bin/sh", "-c", before + "; exec \"$0\" \"$@\""});
    auto receiver = std::make_unique<Process>(setup);
    EXPECT_TRUE(receiver->waitForOutput("\"ready\"")) << receiver->errors();
    return receiver;
  }
};

TEST_F(CliReceiveTest, AsksForAllTheDescriptorsItMayHave) {
  const auto receiver = startInShell("ulimit -Sn 100; echo $$");
  rlimit limit{};
  ASSERT_EQ(::prlimit(std::stoi(receiver->output()), RLIMIT_NOFILE, nullptr, &limit), 0);
  EXPECT_EQ(limit.rlim_cur, std::min<rlim_t>(limit.rlim_max, 65'536));
}

TEST_F(CliReceiveTest, TellsProgramsAllThereIsToKnow) {
  const auto receiver = startReceiver({"--json", "--log", folder_.path("log")});
  EXPECT_TRUE(RawConnection::to(port_).send(Bytes::folderWithFile()));
  ASSERT_TRUE(receiver->waitForOutput("\"finished\""));
  receiver->signal(SIGINT);
  const auto result = resultOf(*receiver);
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.errors, "");
  auto events = eventsIn(result.output);
  EXPECT_EQ(events[0]["version"], 1);
  EXPECT_EQ(events[0]["tcpPort"], port_);
  EXPECT_EQ(events[0]["downloads"], folder_.path("in"));
  EXPECT_EQ(events[1],
            (nlohmann::json{{"event", "transferStarted"}, {"transfer", 1}, {"direction", "in"}, {"ip", "127.0.0.1"}}));
  EXPECT_EQ(events.end()[-3], (nlohmann::json{{"event", "progress"},
                                              {"transfer", 1},
                                              {"elementCount", 2},
                                              {"finishedElements", 2},
                                              {"totalSize", 5},
                                              {"finishedBytes", 5},
                                              {"name", "A/b.txt"}}));
  EXPECT_EQ(events.end()[-2],
            (nlohmann::json{{"event", "itemsSaved"}, {"transfer", 1}, {"path", folder_.path("in/A")}}));
  EXPECT_EQ(events.back()["elements"], 2);
  EXPECT_EQ(events.back()["bytes"], 5);
  EXPECT_GT(events.back()["seconds"], 0.0);
  EXPECT_NE(folder_.read("log").find("Incoming transfer elements="), std::string::npos);
}

TEST_F(CliReceiveTest, ItsDeathIsNoOrderlyEnd) {
  const auto receiver = startReceiver({"--json"});
  auto connection = RawConnection::to(port_);
  connection.send(unfinishedStream());
  // The first element is stored when everything has been read: the system would reset a connection with unread bytes.
  EXPECT_TRUE(isSoon([&] { return !folder_.entries("in").empty(); }));
  receiver->signal(SIGKILL);
  EXPECT_EQ(connection.receiveAll(), "");
  EXPECT_EQ(connection.error(), std::errc::connection_reset);
}

TEST_F(CliReceiveTest, PrintsResultsOnStandardOutput) {
  const auto text = receiveOnce(Bytes::metadata(1, 4) + Bytes::file(Bytes::textName, "a\nb\x1b"), {});
  EXPECT_EQ(text.code, 0);
  EXPECT_EQ(text.output, "a\nb\x1b\n");
  EXPECT_NE(text.errors.find("text from 127.0.0.1, 4 bytes:\n"), std::string::npos) << text.errors;

  const auto items = receiveOnce(Bytes::folderWithFile(), {"--quiet", "--json"});
  EXPECT_EQ(eventIn(items.output, "progress"), nullptr);
  EXPECT_EQ(eventIn(items.output, "itemsSaved")["path"], folder_.path("in/A"));

  EXPECT_EQ(receiveOnce(Bytes::metadata(0, 0), {}).output, "");
}

TEST_F(CliReceiveTest, QuietPrintsPathsAlone) {
  port_ = RawListener(false).port();
  Process receiver(
      setupFor({"receive", "--dir", folder_.makeFolder("in"), "--port", std::to_string(port_), "--quiet", "--once"}));
  const std::string file = folder_.write("a\nb", "");
  int attempts = 0;
  while (run({"send", "--to", peer(), file}).code == 4 && ++attempts < 1000) {
  }
  const auto result = resultOf(receiver);
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.output, folder_.path("in/a\nb") + '\n');
  EXPECT_EQ(result.errors, "");
}

TEST_F(CliReceiveTest, OnceEndsAsItsTransferDid) {
  EXPECT_EQ(receiveOnce(Bytes::folderWithFile(), {}).code, 0);
  EXPECT_EQ(folder_.entries("in"), std::vector<std::string>{"A"});

  auto result = receiveOnce(unfinishedStream(), {});
  EXPECT_EQ(result.code, 5);
  EXPECT_NE(result.errors.find("receiving from 127.0.0.1: "), std::string::npos) << result.errors;
  result = receiveOnce(Bytes::metadata(1, 1) + Bytes::file("../x", "x"), {"--json"});
  EXPECT_EQ(result.code, 5);
  EXPECT_EQ(eventIn(result.output, "failed")["reason"], "unsafeName");
  EXPECT_EQ(folder_.entries("in"), std::vector<std::string>{"A"});

  result = receiveOnce(Bytes::metadata(2, 2) + Bytes::file(std::string(300, 'n'), "x") + Bytes::file("good", "y"),
                       {"--json"});
  EXPECT_EQ(result.code, 6);
  EXPECT_EQ(eventIn(result.output, "skipped")["element"], std::string(300, 'n'));
  EXPECT_EQ(eventIn(result.output, "finished")["skipped"], 1);
  EXPECT_EQ(eventIn(result.output, "finished")["elements"], 1);
  EXPECT_EQ(folder_.read("in/good"), "y");

  result = receiveOnce(unfinishedStream(), {"--keep-partial", "--json"});
  EXPECT_EQ(result.code, 5);
  const std::string kept = eventIn(result.output, "failed")["keptPath"];
  EXPECT_EQ(std::filesystem::path(kept).parent_path(), folder_.path("in"));
  EXPECT_TRUE(std::filesystem::exists(kept));
}

TEST_F(CliReceiveTest, OnceTakesNoSecondTransfer) {
  const auto receiver = startReceiver({"--once", "--json"});
  auto first = RawConnection::to(port_);
  ASSERT_TRUE(receiver->waitForOutput("\"transferStarted\",\"transfer\":1"));
  auto second = RawConnection::to(port_);
  second.send(Bytes::metadata(1, 1) + Bytes::file("second", "x"));
  ASSERT_TRUE(receiver->waitForOutput("\"failed\",\"transfer\":2"));
  first.send(Bytes::folderWithFile());
  EXPECT_EQ(receiver->wait(), 0);
  EXPECT_EQ(folder_.entries("in"), std::vector<std::string>{"A"});
}

TEST_F(CliReceiveTest, EndsWithinTwoSecondsWhenInterrupted) {
  const struct {
    int number;
    bool hasTransfer;
    Arguments more;
    int code;
  } cases[] = {{SIGINT, false, {}, 0}, {SIGTERM, true, {}, 0},          {SIGHUP, true, {}, 0},
               {SIGINT, true, {}, 0},  {SIGTERM, false, {"--once"}, 0}, {SIGINT, true, {"--once"}, 130}};
  for (const auto& [number, hasTransfer, more, code] : cases) {
    Arguments arguments{"--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const auto receiver = startReceiver(arguments);
    std::optional<RawConnection> connection;
    if (hasTransfer) {
      connection.emplace(RawConnection::to(port_)).send(unfinishedStream());
      ASSERT_TRUE(receiver->waitForOutput("\"progress\""));
    }
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i) receiver->signal(number);  // as timeout(1) does: the process, then its group
    EXPECT_EQ(receiver->wait(), code);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(folder_.entries("in"), std::vector<std::string>());
    if (hasTransfer) {
      EXPECT_EQ(eventIn(receiver->output(), "failed")["reason"], "cancelled");
    }
  }
}

TEST_F(CliReceiveTest, SaysWhichPortIsTaken) {
  const RawListener other;
  const std::string port = std::to_string(other.port());
  auto result = run({"receive", "--dir", folder_.path(), "--port", port});
  EXPECT_EQ(result.code, 7);
  EXPECT_EQ(result.errors, "vesko: cannot listen on TCP port " + port + ": Address already in use\n");
  result = run({"receive", "--dir", folder_.path(), "--port", port, "--json"});
  EXPECT_EQ(result.code, 7);
  EXPECT_EQ(eventIn(result.output, "startupFailure")["endpoint"], "tcp");
}

TEST_F(CliReceiveTest, SaysWhenResultsAreLost) {
  const RawListener other;
  auto setup = setupFor({"receive", "--dir", folder_.path(), "--json", "--port", std::to_string(other.port())});
  setup.arguments.insert(setup.arguments.begin(), {"/bin/sh", "-c", "exec \"$@\" >/dev/full", "sh"});
  Process full(setup);
  EXPECT_NE(resultOf(full).errors.find("cannot write to standard output"), std::string::npos);
}

TEST_F(CliReceiveTest, ALimitOfFileSizesIsAFullDisk) {
  const auto receiver = startInShell("ulimit -f 100");
  const std::string large(1'000'000, 'x');
  RawConnection::to(port_).send(Bytes::metadata(1, large.size()) + Bytes::file("large", large));
  EXPECT_TRUE(receiver->waitForOutput(R"("failed","transfer":1,"reason":"noSpace")")) << receiver->output();
  EXPECT_NE(receiver->output().find("files as large as that cannot be stored there"), std::string::npos);
  RawConnection::to(port_).send(Bytes::folderWithFile());
  EXPECT_TRUE(receiver->waitForOutput(R"("finished","transfer":2)")) << receiver->output();
  EXPECT_EQ(folder_.entries("in"), std::vector<std::string>{"A"});
}

TEST_F(CliReceiveTest, OutlivesItsTerminalUnderNohup) {
  const auto receiver = startInShell("trap '' HUP");
  receiver->signal(SIGHUP);
  RawConnection::to(port_).send(Bytes::folderWithFile());
  EXPECT_TRUE(receiver->waitForOutput(R"("finished","transfer":1)")) << receiver->output();
  receiver->signal(SIGTERM);
  EXPECT_EQ(receiver->wait(), 0);
}

TEST_F(CliReceiveTest, AFullDiskFailsTheTransferAndLeavesNothing) {
  const std::string disk = folder_.makeFolder("in");
  if (::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=256k") != 0) GTEST_SKIP() << "mounting is not permitted here";
  const auto result = receiveOnce(Bytes::metadata(2, 500'000) + Bytes::file("fits", std::string(100'000, 'x')) +
                                      Bytes::file("does not", std::string(400'000, 'x')),
                                  {"--json"});
  EXPECT_EQ(result.code, 5);
  EXPECT_EQ(eventIn(result.output, "failed")["reason"], "noSpace");
  EXPECT_EQ(folder_.entries("in"), std::vector<std::string>());
  EXPECT_EQ(::umount(disk.c_str()), 0);
}

}  // namespace
}  // namespace vesko
