// What the user's other programs say to a host that runs, and what they make of its answers.

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/support/Check.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCheck.h"
#include "fuzz/support/Sending.h"
#include "fuzz/support/WorkFolder.h"
#include "hosts/common/control/ControlFolder.h"
#include "hosts/common/control/ControlMessage.h"
#include "hosts/common/control/ControlServer.h"
#include "hosts/common/events/EventJson.h"
#include "hosts/common/events/PeerJson.h"

namespace vesko::fuzz {
namespace {

constexpr std::uint16_t port = 4644;

class NoSink final : public EventSink {
 public:
  void publish(Event /*event*/) override {}
};

/// A host whose table holds what machines may call themselves.
class Host {
 public:
  Host() {
    const auto hub = std::make_shared<EventHub>(std::make_shared<NoSink>());
    hub->publish(PeerAppearedEvent{{"10.0.0.2", "10.0.0.2", port, "a\nb \xff \"\\ \x1b", "", {}}});
    check(::setenv("XDG_RUNTIME_DIR", folder_.path().c_str(), 1) == 0, "the environment can be changed");
    server_ = std::make_shared<ControlServer>(
        hub, ControlActions{[] {}, [](const std::string& key) { return key; }, [] { return std::chrono::seconds(1); }});
    std::error_code error;
    server_->listen(port, error);
    check(!error, "the host listens", [&] { return error.message(); });
  }

  /// All that is answered to `bytes`.
  [[nodiscard]] static std::string answerTo(std::string_view bytes, std::uint8_t choice) {
    const FileDescriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    controlPath(port).copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* const where = reinterpret_cast<const sockaddr*>(&address);
    const int result = uninterrupted([&] { return ::connect(connection.get(), where, sizeof address); });
    check(result == 0, "the host can be reached");
    return exchange(connection.get(), bytes, choice);
  }

 private:
  const WorkFolder folder_;
  std::shared_ptr<ControlServer> server_;
};

/// The events by which the host must answer `bytes`, in order.
std::vector<std::string> expectedAnswers(std::string_view bytes, bool& isCutOff) {
  std::vector<std::string> events;
  bool isWatching = false;
  isCutOff = false;
  while (!bytes.empty()) {
    const auto length = bytes.find('\n');
    const auto line = bytes.substr(0, length);
    isCutOff = line.size() > controlRequestLimit;
    if (isCutOff || length == std::string_view::npos) break;
    bytes.remove_prefix(length + 1);
    const auto request = parseControlRequest(line);
    const bool isWatch = request && request->kind == ControlRequest::Kind::watch;
    if (!request || (isWatch && isWatching)) {
      events.emplace_back("error");
      break;
    }
    isWatching = isWatching || isWatch;
    events.emplace_back(request->kind == ControlRequest::Kind::announce ? "announced"
                        : request->kind == ControlRequest::Kind::avatar ? "avatar"
                                                                        : "peers");
  }
  return events;
}

void checkServer(std::string_view bytes, std::uint8_t choice) {
  static const Host host;
  const std::string answer = Host::answerTo(bytes, choice);
  bool isCutOff = false;
  const auto expected = expectedAnswers(bytes, isCutOff);
  check(answer.empty() || answer.ends_with('\n'), "an answer is whole lines");
  std::size_t count = 0;
  for (std::string_view rest = answer; !rest.empty(); ++count) {
    const auto line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size() + 1);
    const auto event = textIn(parseJson(line), "event");
    check(event.has_value(), "an answer tells of an event", [line] { return std::string(line); });
    check(count < expected.size() && *event == expected[count], "an answer is that of its request",
          [&] { return *event; });
  }
  // Who breaks the rules may lose what it has not been sent yet.
  check(isCutOff || count == expected.size(), "every request is answered");
}

void checkParsers(std::string_view line) {
  if (const auto request = parseControlRequest(line)) {
    check(parseControlRequest(controlLine(*request)) == request, "a request reads as it was written");
  }
  if (const auto peers = parseControlPeers(line)) {
    check(parseControlPeers(controlPeersLine(*peers)) == peers, "an answer reads as it was written");
  }
  if (const auto avatar = parseControlAvatar(line)) {
    check(parseControlAvatar(controlAvatarLine(*avatar)) == avatar, "a picture reads as it was written");
  }
  if (const auto peers = parsePeers(line)) {
    check(parsePeers(jsonArray(*peers)) == peers, "peers read as they were written");
  }
  if (const auto event = parsePeerEvent(line)) {
    const auto written = jsonLine(*event);
    check(written.find('\n') == written.npos, "an event is one line");
    const auto again = parsePeerEvent(written);
    check(again && again->index() == event->index() && jsonLine(*again) == written, "an event reads as it was written");
  }
  check(parseJson(controlErrorLine(line)).is_object(), "any message makes an answer");
}

void run(Input input) {
  listenToLog(false);
  // Reading lines takes far less time than having them answered.
  if (const auto options = input.takeByte(); options % 4 == 0) {
    checkServer(input.rest(), static_cast<std::uint8_t>(options / 4));
  } else {
    checkParsers(input.rest());
  }
}

}  // namespace
}  // namespace vesko::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  vesko::fuzz::run({bytes, length});
  return 0;
}
