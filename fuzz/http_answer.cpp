// Answers to the request for a picture, over loopback, and the pictures in them.

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "Platform/http/HTTPSession.h"
#include "Platform/http/SelectorEventLoop.h"
#include "Platform/queues/Clock.h"
#include "Platform/user/NSImage.h"
#include "fuzz/support/Check.h"
#include "fuzz/support/Input.h"
#include "fuzz/support/LogCheck.h"
#include "fuzz/support/ManualQueue.h"
#include "fuzz/support/Sending.h"

namespace vesko::fuzz {
namespace {

constexpr std::size_t maximumBody = 4096;

/// Far below what is used, as large pictures take their time and lead nowhere else.
constexpr std::uint32_t maximumSide = 128;

class Session {
 public:
  Session() { loop_->runForever(); }
  ~Session() { loop_->stop(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// What becomes of a request that is answered by `bytes`, and then by the end of the connection, or by a reset.
  [[nodiscard]] std::optional<HTTPResponse> get(std::string_view bytes, std::uint8_t choice, bool endsInReset) {
    std::optional<HTTPResponse> result;
    int completions = 0;
    constexpr std::chrono::seconds bound{15};  // of an input that hangs, long before the fuzzer's own

    session_.get({"127.0.0.1", listener_.port(), "/virno/avatar", maximumBody, bound, bound}, queue_,
                 [&](std::optional<HTTPResponse> response) {
                   result = std::move(response);
                   ++completions;
                 });
    answer(bytes, choice, endsInReset);
    queue_->runOne();
    queue_->drain();
    check(completions == 1, "a request is completed once");
    return result;
  }

 private:
  void answer(std::string_view bytes, std::uint8_t choice, bool endsInReset) const {
    auto connection = listener_.accept();
    check(connection.receive(4) == "GET ", "a request is sent");
    sendInPieces(connection, bytes, choice);
    if (!endsInReset) {
      connection.endSending();
      (void)receiveAll(connection);
    }
    connection.reset();
  }

  const RawListener listener_;
  const std::shared_ptr<ManualQueue> queue_ = std::make_shared<ManualQueue>();
  const std::shared_ptr<SelectorEventLoop> loop_ = std::make_shared<SelectorEventLoop>();
  HTTPSession session_{loop_, Clock::system()};
};

void checkPicture(std::string_view bytes) {
  const auto size = sizeOfPng(bytes);
  const bool isSane = isSanePng(bytes, maximumSide);
  check(!isSane || (size && std::max(size->width, size->height) <= maximumSide), "a sane picture is small");
  check(!isSane || (size->width > 0 && size->height > 0), "a sane picture is not empty");
  // Only a sane one of that kind, as large ones take long.
  if (size && !isSane) return;
  const auto image = NSImage::decode(bytes);
  check(image || !isSane, "a sane picture can be decoded");
  if (!image || std::max(image->size().width, image->size().height) > maximumSide) return;
  const auto png = image->pngRepresentation();
  check(png && isSanePng(*png, maximumSide), "a picture can be written as another kind");
  const auto again = NSImage::decode(*png);
  check(again && again->pngRepresentation() == png, "a picture reads as it was written");
}

void run(Input input) {
  static Session session;
  listenToLog(false);
  const auto options = input.takeByte();
  // Pictures are also looked at as they are: that way a change in one leads somewhere at once.
  if ((options & 1) == 0) {
    checkPicture(input.rest());
    return;
  }
  const auto choice = input.takeByte();
  if (const auto response = session.get(input.rest(), choice, (options & 6) == 6)) {
    check(response->status >= 200 && response->status <= 999, "an answer has a status");
    check(response->body.size() <= maximumBody, "a body is bounded");
    checkPicture(response->body);
  }
}

}  // namespace
}  // namespace vesko::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length) {
  vesko::fuzz::run({bytes, length});
  return 0;
}
