#include <array>
#include <iterator>

#include "hosts/common/session/Session.h"
#include "hosts/common/text/HumanText.h"
#include "tests/hosts/cli/CliFixture.h"
#include "tests/support/IsSoon.h"

namespace vesko {
namespace {

using CliSendTest = CliTest;

TEST_F(CliSendTest, FoldersArriveAsTheyWere) {
  folder_.write("photos/summer/été.txt", "hello");
  folder_.write("photos/.hidden", std::string(3'000'000, 'x'));
  folder_.makeFolder("photos/empty");
  const auto receiver = startReceiver();
  const auto result = run({"send", "--to", peer(), folder_.path("photos")});
  EXPECT_TRUE(result.output.starts_with("sent photos to " + peer() + ": 5 elements, 3.0 MB")) << result.output;
  EXPECT_EQ(result.errors, "");
  EXPECT_TRUE(receiver->waitForOutput("saved " + folder_.path("in/photos") + ": 5 elements, 3.0 MB from 127.0.0.1"));
  EXPECT_EQ(folder_.tree("in/photos"), folder_.tree("photos"));
}

TEST_F(CliSendTest, PathsArriveUnderTheirRealNames) {
  folder_.write("dir/sub/a", "a");
  folder_.write("dir/[a,b]", "b");
  folder_.write("dir/text", "d");
  std::filesystem::create_symlink("text", folder_.path("dir/link"));
  std::filesystem::create_symlink("sub", folder_.path("dir/linkToSub"));
  const auto receiver = startReceiver();
  const std::pair<Arguments, std::string> cases[] = {
      {{"."}, "/dir: 8 elements, 5 bytes"},
      {{"sub/.."}, "/dir (2): 8 elements, 5 bytes"},
      {{"sub/."}, "/sub: 2 elements, 1 byte"},
      {{"[a,b]"}, "/[a,b]: 1 byte"},
      {{"linkToSub/"}, "/linkToSub: 2 elements, 1 byte"},
      {{"text", "./text", "sub/../text", "linkToSub/../text"}, "/text: 1 byte"},
      {{"sub", "sub/", "../dir/sub"}, "/sub (2): 2 elements, 1 byte"},
      {{"link", "text"}, ": 2 elements, 2 bytes"},
  };
  for (const auto& [paths, saved] : cases) {
    auto setup = setupFor(joined({"send", "--to", peer(), "--quiet"}, paths));
    setup.arguments = joined({"/usr/bin/env", "-C", folder_.path("dir")}, setup.arguments);
    const auto result = Process(setup).result();
    EXPECT_EQ(result.code, 0) << paths.front() << result.errors;
    EXPECT_EQ(result.output + result.errors, "") << paths.front();
    EXPECT_TRUE(receiver->waitForOutput(saved + " from")) << saved << " is missing in\n" << receiver->output();
  }
}

TEST_F(CliSendTest, WrongCommandLinesAreUsageErrors) {
  for (const char* line :
       {"", "fetch", "send /", "send --to 127.0.0.1:1", "send --to 127.0.0.1:1 --colour /",
        "send --to 127.0.0.1:1 --port 0 /", "send --to 127.0.0.1:1 --log /none/log /", "send --to 300.1.1.1 /",
        "peers --wait -1", "text --to 127.0.0.1:1 a b", "text --to 127.0.0.1:1 \xff", "receive x",
        "receive --dir /none", "receive --dir /etc/passwd", "receive --dir /tmp --ask",
        "receive --dir /tmp --allow 10.0.0.0/33", "receive --dir /tmp --max-size -1",
        "receive --dir /tmp --max-size 5X"}) {
    std::istringstream words(line);
    const auto result = run({std::istream_iterator<std::string>(words), {}});
    EXPECT_EQ(result.code, 2) << line;
    EXPECT_EQ(result.output, "");
    EXPECT_NE(result.errors, "");
  }
  EXPECT_EQ(run({"text", "--to", "127.0.0.1:1"}, std::string(VeskoText::maximumLength + 1, 'x')).code, 2);
  EXPECT_EQ(run({"send", "--to", "127.0.0.1:1", folder_.write("a/x", ""), folder_.write("b/x", "")}).code, 2);
  for (const char* option : {"--help", "--version"}) EXPECT_EQ(run({option}).code, 0);
}

TEST_F(CliSendTest, NamesWhatCouldNotBeSent) {
  const std::string file = folder_.write("a", "hello");
  const RawListener refusing(false);
  auto result = run({"send", "--to", "localhost", "--wait", "0", file});
  EXPECT_EQ(result.code, 3);
  EXPECT_NE(result.errors.find("no other machine was found"), std::string::npos) << result.errors;
  EXPECT_EQ(run({"send", "--to", "127.0.0.1", "--port", std::to_string(refusing.port()), file}).code, 4);

  // Nothing is left, so nobody has to be reached.
  const struct {
    std::string path;
    int code;
    std::string complaint;
  } cases[] = {
      {folder_.path("none\x1b[2J"), 6, "none\\u{1b}[2J\": it does not exist"},
      {"/proc/cpuinfo", 6, "\"/proc/cpuinfo\": its length is not known in advance"},
      {file + "/", 6, "a/\": it is a file, not a folder"},
      {folder_.write("___VIRNO___TEXT___", "x"), 2,
       "TEXT___\": by itself it would arrive as a text; put it into a folder"},
  };
  for (const auto& [path, code, complaint] : cases) {
    result = run({"send", "--to", addressOf(refusing.port()), path});
    EXPECT_EQ(result.code, code);
    EXPECT_NE(result.errors.find(complaint), std::string::npos) << result.errors;
  }

  const auto receiver = startReceiver();
  result = run({"send", "--to", peer(), "--json", folder_.path("none"), file});
  EXPECT_EQ(result.code, 6);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(eventIn(result.output, "skipped")["path"], folder_.path("none"));
  EXPECT_EQ(eventIn(result.output, "skipped")["reason"], "notFound");
  EXPECT_EQ(eventIn(result.output, "finished")["elements"], 1);
  EXPECT_TRUE(receiver->waitForOutput("saved"));
  EXPECT_EQ(folder_.read("in/a"), "hello");
}

TEST_F(CliSendTest, EndsWhenInterruptedOrBrokenOff) {
  const RawListener listener;
  for (const int number : {0, SIGINT, SIGTERM}) {
    Process sender(setupFor({"send", "--to", addressOf(listener.port()), "--json", makeLargeFile()}));
    auto connection = listener.accept();
    EXPECT_EQ(connection.receive(100'000).size(), 100'000U);
    if (number == 0) {
      connection.reset();
    } else {
      sender.signal(number);
      static_cast<void>(connection.receiveAll());
      EXPECT_EQ(connection.error(), std::errc::connection_reset);  // not to be taken for the end of the stream
    }
    EXPECT_EQ(sender.wait(), number == 0 ? 5 : 130);
    const auto failure = eventsIn(sender.output()).back();
    EXPECT_EQ(failure["event"], "failed");
    EXPECT_EQ(failure["reason"], number == 0 ? "connectionLost" : "cancelled");
    EXPECT_EQ(failure.value("element", ""), number == 0 ? "large" : "");
  }
  Process typing(setupAtTerminal({"text", "--to", addressOf(listener.port()), "--log", folder_.path("log")}));
  EXPECT_TRUE(isSoon([&] { return folder_.exists("log"); }));
  typing.signal(SIGINT);
  EXPECT_EQ(typing.wait(), 130);
}

TEST_F(CliSendTest, TextsArriveByteForByte) {
  const auto receiver = startReceiver({"--json"});
  const std::string text("a\n\tb\0\x1b[2J\u00e9\r\n", 13);
  EXPECT_EQ(run({"text", "--to", peer(), "first"}).code, 0);
  EXPECT_EQ(run({"text", "--to", peer()}, text).code, 0);
  EXPECT_EQ(run({"text", "--to", peer(), "-"}, "-third").code, 0);
  EXPECT_EQ(run({"text", "--to", peer(), "--", "--fourth"}).code, 0);
  EXPECT_EQ(run({"text", "--to", peer(), ""}).code, 0);
  receiver->signal(SIGTERM);
  std::vector<std::string> texts;
  for (const auto& event : eventsIn(receiver->result().output)) {
    if (event["event"] == "textReceived") texts.push_back(event["text"]);
  }
  EXPECT_EQ(texts, (std::vector<std::string>{"first", text, "-third", "--fourth", ""}));
}

TEST_F(CliSendTest, ShowsABarOnTerminalsOnly) {
  const std::string file = folder_.write("\x1b]0;name", std::string(3'000'000, 'x'));
  const auto receiver = startReceiver();
  for (const auto columns : std::to_array<unsigned short>({30, 60, 200})) {
    const auto [code, output, errors] = Process(setupAtTerminal({"send", "--to", peer(), file}, columns)).result();
    EXPECT_EQ(code, 0);
    EXPECT_NE(errors.find("%  "), std::string::npos) << errors;
    EXPECT_EQ(errors.find('\x1b'), std::string::npos);
    EXPECT_TRUE(errors.ends_with(" \r"));
    std::istringstream lines(errors);
    for (std::string line; std::getline(lines, line, '\r');) EXPECT_LT(columnsOf(line), columns) << line;
  }
  EXPECT_EQ(Process(setupAtTerminal({"send", "--to", peer(), "--quiet", file})).result().errors, "");
}

TEST_F(CliSendTest, SaysWhomItWaitsForOnceAllIsHandedOver) {
  const RawListener listener;
  Process sender(setupAtTerminal({"send", "--to", addressOf(listener.port()), folder_.write("name", "body")}));
  auto receiver = listener.accept();
  EXPECT_TRUE(sender.waitForErrors("waiting for " + addressOf(listener.port()) + " to confirm"));
  EXPECT_EQ(sender.output(), "");
  EXPECT_TRUE(receiver.receiveAll().ends_with("body"));
  receiver.close();
  EXPECT_EQ(sender.wait(), 0);
}

TEST_F(CliSendTest, ColoursOnlyWhereItIsWelcome) {
  const std::pair<std::vector<std::string>, bool> cases[] = {
      {{"TERM=xterm", "NO_COLOR="}, true}, {{"TERM=xterm", "NO_COLOR=1"}, false}, {{"TERM=dumb", "NO_COLOR="}, false}};
  for (const auto& [environment, hasColour] : cases) {
    auto setup = setupAtTerminal({"send", "--to", "127.0.0.1:1", "x"});
    setup.environment = environment;
    EXPECT_EQ(Process(setup).result().errors.find('\x1b') != std::string::npos, hasColour) << environment[0];
  }
}

}  // namespace
}  // namespace vesko
