#include <sys/resource.h>

#include <algorithm>
#include <optional>

#include "tests/hosts/cli/CliFixture.h"
#include "tests/support/IsSoon.h"
#include "tests/support/StreamBytes.h"

namespace vesko {
namespace {

namespace Bytes = StreamBytes;
using Strings = std::vector<std::string>;

/// Two elements, of which the second one's body has only begun.
std::string unfinishedStream() {
  return Bytes::metadata(2, 1005) + Bytes::file("whole", "hello") + Bytes::header("part", 1000) + "x";
}

class CliReceiveTest : public CliTest {
 protected:
  /// Sends a stream, waits for the receiver to be through with it, and returns how the program ended.
  Process::Result receiveOnce(const std::string& stream, const Arguments& more = {}) {
    const auto receiver = startReceiver(joined({"--once"}, more));
    send(stream);
    return receiver->result();
  }

  /// A receiver that a shell starts once it has done `before`.
  std::unique_ptr<Process> startInShell(const std::string& before) {
    auto setup = setupFor(receiveCommand({"--json"}));
    setup.arguments = joined({"/bin/sh", "-c", before + "; exec \"$0\" \"$@\""}, setup.arguments);
    return started(setup);
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
  send(Bytes::folderWithFile());
  ASSERT_TRUE(receiver->waitForOutput("\"finished\""));
  receiver->signal(SIGINT);
  const auto [code, output, errors] = receiver->result();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(errors, "");
  auto events = eventsIn(output);
  EXPECT_EQ(events[0]["tcpPort"], port_);
  EXPECT_EQ(events[0]["downloads"], folder_.path("in"));
  EXPECT_EQ(events[1]["event"], "transferStarted");
  EXPECT_EQ(events[1]["ip"], "127.0.0.1");
  EXPECT_EQ(events.end()[-3]["finishedBytes"], 5) << "the last progress";
  EXPECT_EQ(events.end()[-2]["path"], folder_.path("in/A"));
  EXPECT_EQ(events.back()["elements"], 2);
  EXPECT_GT(events.back()["seconds"], 0.0);
  EXPECT_NE(folder_.read("log").find("Incoming transfer elements="), std::string::npos);
}

TEST_F(CliReceiveTest, ItsDeathIsNoOrderlyEnd) {
  const auto receiver = startReceiver({"--json"});
  auto connection = send(unfinishedStream());
  // The first element is stored when everything has been read: the system would reset a connection with unread bytes.
  EXPECT_TRUE(isSoon([&] { return !folder_.entries("in").empty(); }));
  receiver->signal(SIGKILL);
  EXPECT_EQ(connection.receiveAll(), "");
  EXPECT_EQ(connection.error(), std::errc::connection_reset);
}

TEST_F(CliReceiveTest, PrintsResultsOnStandardOutput) {
  const auto text = receiveOnce(Bytes::metadata(1, 4) + Bytes::file(Bytes::textName, "a\nb\x1b"));
  EXPECT_EQ(text.code, 0);
  EXPECT_EQ(text.output, "a\nb\x1b\n");
  EXPECT_NE(text.errors.find("text from 127.0.0.1, 4 bytes:\n"), std::string::npos) << text.errors;
  EXPECT_EQ(receiveOnce(Bytes::metadata(0, 0)).output, "");
  const auto items = receiveOnce(Bytes::folderWithFile(), {"--quiet", "--json"});
  EXPECT_EQ(eventIn(items.output, "progress"), nullptr);
  EXPECT_EQ(eventIn(items.output, "itemsSaved")["path"], folder_.path("in/A"));

  Process quiet(setupFor(receiveCommand({"--quiet", "--once"})));  // does not even say when it is ready
  const std::string file = folder_.write("a\nb", "");
  EXPECT_TRUE(isSoon([&] { return run({"send", "--to", peer(), file}).code == 0; }));
  EXPECT_EQ(quiet.wait(), 0);
  EXPECT_EQ(quiet.output(), folder_.path("in/a\nb") + '\n');
  EXPECT_EQ(quiet.errors(), "");
}

TEST_F(CliReceiveTest, OnceEndsAsItsTransferDid) {
  EXPECT_EQ(receiveOnce(Bytes::folderWithFile()).code, 0);
  auto result = receiveOnce(unfinishedStream());
  EXPECT_EQ(result.code, 5);
  EXPECT_NE(result.errors.find("receiving from 127.0.0.1: "), std::string::npos) << result.errors;
  result = receiveOnce(Bytes::metadata(1, 1) + Bytes::file("../x", "x"), {"--json"});
  EXPECT_EQ(result.code, 5);
  EXPECT_EQ(eventIn(result.output, "failed")["reason"], "unsafeName");
  EXPECT_EQ(folder_.entries("in"), Strings{"A"});

  const std::string longName(300, 'n');
  result = receiveOnce(Bytes::metadata(2, 2) + Bytes::file(longName, "x") + Bytes::file("good", "y"), {"--json"});
  EXPECT_EQ(result.code, 6);
  EXPECT_EQ(eventIn(result.output, "skipped")["element"], longName);
  EXPECT_EQ(eventIn(result.output, "finished")["skipped"], 1);
  EXPECT_EQ(folder_.read("in/good"), "y");

  result = receiveOnce(unfinishedStream(), {"--keep-partial", "--json"});
  EXPECT_EQ(result.code, 5);
  const std::filesystem::path kept = std::string(eventIn(result.output, "failed")["keptPath"]);
  EXPECT_EQ(kept.parent_path(), folder_.path("in"));
  EXPECT_TRUE(std::filesystem::exists(kept));
}

TEST_F(CliReceiveTest, OnceTakesNoSecondTransfer) {
  const auto receiver = startReceiver({"--once", "--json"});
  auto first = RawConnection::to(port_);
  ASSERT_TRUE(receiver->waitForOutput("\"transferStarted\",\"transfer\":1"));
  const auto second = send(Bytes::metadata(1, 1) + Bytes::file("second", "x"));
  ASSERT_TRUE(receiver->waitForOutput("\"failed\",\"transfer\":2"));
  first.send(Bytes::folderWithFile());
  EXPECT_EQ(receiver->wait(), 0);
  EXPECT_EQ(folder_.entries("in"), Strings{"A"});
}

TEST_F(CliReceiveTest, EndsWhenInterrupted) {
  const struct {
    int number;
    bool hasTransfer;
    Arguments more;
    int code;
  } cases[] = {{SIGINT, false, {}, 0}, {SIGTERM, true, {}, 0},          {SIGHUP, true, {}, 0},
               {SIGINT, true, {}, 0},  {SIGTERM, false, {"--once"}, 0}, {SIGINT, true, {"--once"}, 130}};
  for (const auto& [number, hasTransfer, more, code] : cases) {
    const auto receiver = startReceiver(joined({"--json"}, more));
    std::optional<RawConnection> connection;
    if (hasTransfer) {
      connection = send(unfinishedStream());
      ASSERT_TRUE(receiver->waitForOutput("\"progress\""));
    }
    for (int i = 0; i < 10; ++i) receiver->signal(number);  // as timeout(1) does: the process, then its group
    EXPECT_EQ(receiver->wait(), code);
    EXPECT_EQ(folder_.entries("in"), Strings());
    auto failure = eventIn(receiver->output(), "failed");
    EXPECT_EQ(hasTransfer ? failure["reason"] : failure, hasTransfer ? nlohmann::json("cancelled") : nullptr);
  }
  const auto under = startInShell("trap '' HUP");  // as nohup(1) does
  under->signal(SIGHUP);
  send(Bytes::folderWithFile());
  EXPECT_TRUE(under->waitForOutput(R"("finished","transfer":1)")) << under->output();
}

TEST_F(CliReceiveTest, SaysWhyItCannotStart) {
  const RawListener other;
  const Arguments command{"receive", "--dir", folder_.path(), "--port", std::to_string(other.port())};
  auto result = run(command);
  EXPECT_EQ(result.code, 7);
  EXPECT_EQ(result.errors,
            "vesko: cannot listen on TCP port " + std::to_string(other.port()) + ": Address already in use\n");
  result = run(joined(command, {"--json"}));
  EXPECT_EQ(result.code, 7);
  EXPECT_EQ(eventIn(result.output, "startupFailure")["endpoint"], "tcp");
  auto setup = setupFor(joined(command, {"--json"}));
  setup.arguments = joined({"/bin/sh", "-c", "exec \"$@\" >/dev/full", "sh"}, setup.arguments);
  EXPECT_NE(Process(setup).result().errors.find("cannot write to standard output"), std::string::npos);
}

TEST_F(CliReceiveTest, ALimitOfFileSizesIsAFullDisk) {
  const auto receiver = startInShell("ulimit -f 100");
  const std::string large(1'000'000, 'x');
  send(Bytes::metadata(1, large.size()) + Bytes::file("large", large));
  EXPECT_TRUE(receiver->waitForOutput(R"("failed","transfer":1,"reason":"noSpace")")) << receiver->output();
  EXPECT_NE(receiver->output().find("files as large as that cannot be stored there"), std::string::npos);
  send(Bytes::folderWithFile());
  EXPECT_TRUE(receiver->waitForOutput(R"("finished","transfer":2)")) << receiver->output();
  EXPECT_EQ(folder_.entries("in"), Strings{"A"});
}

}  // namespace
}  // namespace vesko
