// Answers to the request for a picture, over loopback, and the pictures in them.

#include <algorithm>
#include <array>
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
  Session() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    auto address = loopback(0);
    socklen_t length = sizeof address;
    auto* const where = reinterpret_cast<sockaddr*>(&address);
    check(::bind(listener_.get(), where, length) == 0 && ::listen(listener_.get(), 1) == 0, "a port can be opened");
    check(::getsockname(listener_.get(), where, &length) == 0, "a port is known");
    port_ = ntohs(address.sin_port);
    loop_->runForever();
  }
  ~Session() { loop_->stop(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// What becomes of a request that is answered by `bytes`, and then by the end of the connection, or by a reset.
  [[nodiscard]] std::optional<HTTPResponse> get(std::string_view bytes, std::uint8_t choice, bool endsInReset) {
    std::optional<HTTPResponse> result;
    int completions = 0;
    const std::chrono::seconds bound(patience.tv_sec);
    session_.get({"127.0.0.1", port_, "/virno/avatar", maximumBody, bound, bound}, queue_,
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
    const FileDescriptor connection(
        uninterrupted([this] { return ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
    check(static_cast<bool>(connection), "a request comes");
    std::array<char, 1024> request;
    const auto count = uninterrupted([&] { return ::recv(connection.get(), request.data(), request.size(), 0); });
    check(count > 0, "a request is sent");
    closeByReset(connection.get());
    sendInPieces(connection.get(), bytes, choice);
    if (endsInReset) return;
    ::shutdown(connection.get(), SHUT_WR);
    (void)receiveAll(connection.get());
  }

  const FileDescriptor listener_;
  std::uint16_t port_ = 0;
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
