// Requests to the server of pictures, over loopback.

#include <algorithm>
#include <memory>
#include <string>

#include "Platform/http/DefaultHTTPServer.h"
#include "Platform/http/HTTPTarget.h"
#include "Platform/http/SelectorEventLoop.h"
#include "Platform/text/TextEncoding.h"
#include "VeskoKit/AvatarEndpoint.h"
#include "fuzz/support/Check.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCheck.h"
#include "fuzz/support/Sending.h"

namespace vesko::fuzz {
namespace {

const std::string picture = "\x89PNG";

void checkQuoted(const std::string& text) {
  const auto quoted = quotedForm(text);
  check(quoted.size() >= 2 && quoted.front() == '"' && quoted.back() == '"', "quoted text has quotes round it");
  check(isValidUtf8(quoted), "quoted text is text");
  const auto isControl = [](char character) { return static_cast<unsigned char>(character) < 0x20; };
  check(std::ranges::none_of(quoted, isControl), "quoted text holds no control characters");
}

/// Answers as the service does, whose own endpoint would listen on every network while the fuzzer runs.
void answer(const DefaultHTTPServer::Environment& environment, const DefaultHTTPServer::StartResponse& startResponse,
            const DefaultHTTPServer::SendBody& sendBody) {
  check(!environment.at("REQUEST_METHOD").empty(), "every request has a method");
  const auto& path = environment.at("PATH_INFO");
  if (path == AvatarEndpoint::path) {
    startResponse("200 OK", {{"Content-Length", std::to_string(picture.size())}});
    sendBody(picture);
  } else {
    checkQuoted(path);
    startResponse("400 Bad Request", {});
    sendBody(quotedForm(path));
  }
  sendBody({});
}

class Server {
 public:
  Server() {
    std::error_code error;
    check(server_.start(error), "the server listens", [&] { return error.message(); });
    loop_->runForever();
  }
  ~Server() { loop_->stop(); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// All that is answered to `bytes`.
  [[nodiscard]] std::string answerTo(std::string_view bytes, std::uint8_t choice) const {
    auto connection = RawConnection::to(server_.port());
    sendInPieces(connection, bytes, choice);
    connection.endSending();
    auto answers = receiveAll(connection);
    connection.reset();  // leaves nothing behind: of thousands a second, the system would run out
    return answers;
  }

 private:
  const std::shared_ptr<SelectorEventLoop> loop_ = std::make_shared<SelectorEventLoop>();
  DefaultHTTPServer server_{loop_, "127.0.0.1", 0, answer};
};

void checkAnswers(std::string_view answers) {
  while (!answers.empty()) {
    const std::string ok = "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n" + picture;
    if (answers.starts_with(ok)) {
      answers.remove_prefix(ok.size());
      continue;
    }
    // Ended by the end of the connection, so it is the last.
    constexpr std::string_view badRequest = "HTTP/1.1 400 Bad Request\r\n\r\n\"";
    check(answers.starts_with(badRequest) && answers.ends_with('"'), "an answer is one of the two",
          [answers] { return std::string(answers); });
    break;
  }
}

void run(Input input) {
  static const Server server;
  listenToLog(false);
  const auto choice = input.takeByte();
  const auto path = pathOfTarget(input.rest());
  check(path.size() <= std::max<std::size_t>(input.rest().size(), 1), "a path is no longer than its target");
  checkQuoted(path);
  checkAnswers(server.answerTo(input.rest(), choice));
}

}  // namespace
}  // namespace vesko::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  vesko::fuzz::run({bytes, length});
  return 0;
}
