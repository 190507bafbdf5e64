#include "Platform/http/HTTPSession.h"

#include <optional>

#include "Platform/http/SelectorEventLoop.h"
#include "tests/socket/sockets/SocketFixture.h"

namespace vesko {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr std::size_t limit = 1000;
constexpr std::size_t maximumHead = 8192;
constexpr std::chrono::seconds connectPatience{2};
constexpr std::chrono::seconds patience{10};

const std::string chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";

std::string withLength(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string answerWithHead(std::size_t length) {
  std::string head = "HTTP/1.1 200 OK\r\n";
  while (head.size() + 100 < length) head += "Field: value\r\n";
  return head + "Last: " + std::string(length - head.size() - 10, 'x') + "\r\n\r\nok";
}

class HTTPSessionTest : public QueueTest {
 protected:
  HTTPSessionTest() { loop_->runForever(); }
  ~HTTPSessionTest() override {
    loop_->stop();
    session_.reset();
    waitForTasks(queue_);
  }

  HTTPSession::Task get(HTTPRequest request) {
    const std::string path = request.path;
    return session_->get(std::move(request), queue_, [this, path](const std::optional<HTTPResponse>& response) {
      const std::string where = queue_->isCurrent() ? "" : "elsewhere ";
      events_.add(where + path + (response ? " " + std::to_string(response->status) + " " + response->body : " none"));
    });
  }

  HTTPSession::Task get(const std::string& path, std::size_t maximumBody = limit) {
    return get({"127.0.0.1", listener_.port(), path, maximumBody, connectPatience, patience});
  }

  /// The next connection, which must be for `path`.
  [[nodiscard]] RawConnection accept(const std::string& path) const {
    const std::string expected = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(listener_.port()) +
                                 "\r\nUser-Agent: Vesko/1.0\r\nConnection: close\r\n\r\n";
    RawConnection peer = listener_.accept();
    EXPECT_EQ(peer.receive(expected.size()), expected);
    return peer;
  }

  /// Asks, and takes what comes of `answer` and the end of its connection.
  void expectOf(std::string_view answer, const std::string& result, std::size_t pieceLength = std::string::npos) {
    get("/path?query");
    RawConnection peer = accept("/path?query");
    peer.send(answer, pieceLength);
    peer.close();
    expect("/path?query " + result);
  }

  void expect(const std::string& event) {
    EXPECT_TRUE(events_.waitFor(event));
    EXPECT_EQ(events_.take(), std::vector<std::string>{event});
  }

  const RawListener listener_;
  const std::shared_ptr<SelectorEventLoop> loop_ = std::make_shared<SelectorEventLoop>();
  std::optional<HTTPSession> session_{std::in_place, loop_, clock_};
  EventList events_;
};

TEST_F(HTTPSessionTest, GivesWholeAnswersAndNoOthers) {
  const std::string most(limit, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {withLength("body") + "more", "200 body"},
      {withLength(""), "200 "},
      {withLength(most), "200 " + most},
      {withLength(most + "x"), "none"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nbody", "none"},
      {"HTTP/1.0 404 Not Found\r\n\r\n" + most, "404 " + most},
      {"HTTP/1.0 404 Not Found\r\n\r\nx" + most, "none"},
      {"HTTP/1.1 302 Found\r\nLocation: /other\r\n\r\nmoved", "302 moved"},
      {"HTTP/1.1 204 No Content\r\n\r\n", "204 "},
      {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Hints\r\nA: b\r\n\r\n" + withLength("body"), "200 body"},
      {chunkedHead + "2;a=b\r\nab\r\n003E4\r\n" + most.substr(4) + "\r\n2\r\ncd\r\n0\r\nA: b\r\n\r\n",
       "200 ab" + most.substr(4) + "cd"},
      {chunkedHead + "3E9\r\n" + most, "none"},
      {chunkedHead + "3E8\r\n" + most + "\r\n1\r\nx\r\n0\r\n\r\n", "none"},
      {chunkedHead + "ffffffffffffffff1\r\nx\r\n0\r\n\r\n", "none"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n", "none"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab", "none"},
      {answerWithHead(maximumHead), "200 ok"},
      {answerWithHead(maximumHead + 1), "none"},
      {"HTTP/1.1 OK\r\n\r\n", "none"},
      {"", "none"}};
  for (const auto& [answer, result] : cases) {
    SCOPED_TRACE(answer.substr(0, 80));
    for (const std::size_t pieceLength : {std::size_t{1}, std::size_t{14}, std::string::npos}) {
      expectOf(answer, result, pieceLength);
    }
  }
  const std::string whole = chunkedHead + "2\r\nab\r\n0\r\nA: b\r\n\r\n";
  for (std::size_t length = 0; length < whole.size(); ++length) expectOf(whole.substr(0, length), "none");
  get("/");
  RawConnection peer = accept("/");
  peer.send("HTTP/1.0 200 OK\r\n\r\nbody");
  peer.reset();
  expect("/ none");
}

TEST_F(HTTPSessionTest, WhatNeverEndsIsBrokenOff) {
  constexpr std::size_t large = std::size_t{1} << 30U;
  constexpr std::size_t bound = large / 16;  // of all that is sent, most of which waits in the system
  const struct {
    std::string beginning, repeated;
    std::size_t maximumBody;
    bool endsInTime;
  } cases[] = {{"HTTP/1.1 200 OK\r\n\r\n", std::string(100, 'x'), limit, false},
               {"HTTP/1.1 200 OK\r\n", "Field: value\r\n", limit, false},
               {"HTTP/1.1 200 ", "x", limit, false},
               {chunkedHead, "1\r\nx\r\n", limit, false},
               {chunkedHead + "1;a=", "x", limit, false},
               {chunkedHead + "0\r\n", "Field: value\r\n", limit, false},
               {"", "HTTP/1.1 100 Continue\r\n\r\n", limit, true},
               {"HTTP/1.1 200 OK\r\n\r\n", "x", large, true}};
  for (const auto& [beginning, repeated, maximumBody, endsInTime] : cases) {
    SCOPED_TRACE(beginning + repeated);
    get("/", maximumBody);
    RawConnection peer = accept("/");
    peer.send(beginning);
    std::size_t sent = 0;
    for (; sent < bound && peer.send(repeated); sent += repeated.size()) {
      if (endsInTime) clock_->advance(1s);
    }
    EXPECT_LT(sent, bound);
    expect("/ none");
  }
}

TEST_F(HTTPSessionTest, TheConnectionHasLessTimeThanTheAnswer) {
  const SilentListener silent;
  get({"127.0.0.1", silent.port(), "/silent", limit, connectPatience, patience});
  ASSERT_TRUE(clock_->waitForAlarm());
  clock_->advance(connectPatience);
  expect("/silent none");
  for (const auto& [time, result] : {std::pair(patience - 1ms, "200 body"), std::pair(0ms + patience, "none")}) {
    get("/");
    RawConnection peer = accept("/");
    clock_->advance(time);
    // An end on the way is there before what is sent after it.
    if (time == patience) (void)peer.receiveAll();
    peer.send(withLength("body"));
    expect(std::string("/ ") + result);
  }
}

TEST_F(HTTPSessionTest, WhatCannotBeAskedIsNone) {
  const std::uint16_t open = listener_.port();
  const RawListener refusing(false);
  const struct {
    const char* host;
    std::uint16_t port;
    const char* path;
  } cases[] = {{"localhost", open, "/"},    {"127.0.0.1", refusing.port(), "/"}, {"127.0.0.1", open, ""},
               {"127.0.0.1", open, "path"}, {"127.0.0.1", open, "/ "},           {"127.0.0.1", open, "/\r\nA: b"}};
  for (const auto& [host, port, path] : cases) {
    get({host, port, path, limit, connectPatience, patience});
    expect(std::string(path) + " none");
  }
}

TEST_F(HTTPSessionTest, ACancelledRequestHasNoAnswer) {
  const auto cancelled = get("/cancelled");
  RawConnection first = accept("/cancelled");
  const auto answered = get("/answered");
  RawConnection second = accept("/answered");
  session_->cancel(cancelled);
  expect("/cancelled none");
  EXPECT_EQ(first.receiveAll(), "");
  session_->cancel(cancelled);
  second.send(withLength("body"));
  expect("/answered 200 body");
  session_->cancel(answered);
  session_->cancel(get("/at once"));
  expect("/at once none");
}

TEST_F(HTTPSessionTest, EndsWithRequestsUnderWay) {
  for (std::size_t i = 0; i < 2; ++i) get("/started");
  RawConnection first = accept("/started");
  RawConnection second = accept("/started");
  second.send("HTTP/1.1 200 OK\r\n\r\nbody");
  loop_->stop();
  get("/not started");
  session_.reset();
  waitForTasks(queue_);
  clock_->advance(patience);
  EXPECT_EQ(events_.all(), std::vector<std::string>());
  for (RawConnection* peer : {&first, &second}) {
    EXPECT_EQ(peer->receiveAll(), "");
    EXPECT_NE(peer->error(), std::errc::resource_unavailable_try_again);
  }
}

}  // namespace
}  // namespace vesko
