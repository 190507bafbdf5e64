#include "Platform/http/DefaultHTTPServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <set>
#include <thread>

#include "Platform/http/SelectorEventLoop.h"
#include "tests/support/EventList.h"
#include "tests/support/RawPeer.h"

namespace vesko {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

/// More than the system holds for a receiver that does not read.
constexpr std::size_t tooMuch = std::size_t{32} * 1024 * 1024;

std::string get(const std::string& target, const std::string& fields = "") {
  return "GET " + target + " HTTP/1.1\r\nHost: here\r\n" + fields + "\r\n";
}

std::string last(const std::string& target) { return get(target, "Connection: close\r\n"); }

/// Of `bytes` in all.
std::string requestOfLength(std::size_t bytes) {
  std::string fields;
  while (fields.size() + 100 < bytes) fields += "Field: value\r\n";
  const std::size_t rest = bytes - last("/").size() - fields.size();
  return get("/" + std::string(rest, 'x'), fields + "Connection: close\r\n");
}

/// How the server answers what its application says of it.
std::string answerTo(const std::string& request) {
  return "HTTP/1.1 200 OK\r\nB: 1\r\nA: 2\r\ncontent-length: " + std::to_string(request.size()) + "\r\n\r\n" + request;
}

const std::string endlessAnswer = "HTTP/1.1 404 Not Found\r\n\r\nnothing here";

class DefaultHTTPServerTest : public testing::Test {
 protected:
  ~DefaultHTTPServerTest() override {
    end();
    EXPECT_LE(threads_.size(), 1U);
  }

  void start(std::chrono::milliseconds bound = DefaultHTTPServer::patience) {
    server_.emplace(
        loop_, "127.0.0.1", 0,
        [this](const auto& environment, const auto& startResponse, const auto& sendBody) {
          answer(environment.at("REQUEST_METHOD") + " " + environment.at("PATH_INFO"), startResponse, sendBody);
        },
        bound);
    std::error_code error;
    ASSERT_TRUE(server_->start(error)) << error.message();
    loop_->runForever();
  }

  void end() {
    loop_->stop();
    server_.reset();
  }

  [[nodiscard]] RawConnection send(std::string_view bytes, std::size_t pieceLength = std::string_view::npos) const {
    RawConnection peer = RawConnection::to(server_->port());
    peer.send(bytes, pieceLength);
    return peer;
  }

  void expectService() const { EXPECT_EQ(send(last("/good")).receiveAll(), answerTo("GET /good")); }

  static void expectEnd(RawConnection& peer, const std::string& answer) {
    EXPECT_EQ(peer.receiveAll(), answer);
    EXPECT_NE(peer.error(), std::errc::resource_unavailable_try_again) << "it is still open";
  }

  const std::shared_ptr<SelectorEventLoop> loop_ = std::make_shared<SelectorEventLoop>();
  std::optional<DefaultHTTPServer> server_;
  EventList requests_;

 private:
  void answer(const std::string& request, const DefaultHTTPServer::StartResponse& startResponse,
              const DefaultHTTPServer::SendBody& sendBody) {
    threads_.insert(std::this_thread::get_id());
    requests_.add(request);
    if (request == "GET /endless") {
      startResponse("404 Not Found", {});
      sendBody("nothing ");
      sendBody("here");
    } else {
      const std::string body = request == "GET /large" ? std::string(tooMuch, 'x') : request;
      startResponse("200 OK", {{"B", "1"}, {"A", "2"}, {"content-length", std::to_string(body.size())}});
      sendBody(body);
    }
    sendBody("");
  }

  std::set<std::thread::id> threads_;  // on the loop's
};

TEST_F(DefaultHTTPServerTest, RequestsOfAConnectionAreAnsweredInOrder) {
  start();
  const std::pair<std::string, std::string> cases[] = {{"/", "/"},
                                                       {"/a%20b%2Fc%C3%BC%00%?d=%41", "/a b/c\u00fc\0%"s},
                                                       {"/%4g%+1%4", "/%4g%+1%4"},
                                                       {"http://there:80/a%2bb?c", "/a+b"},
                                                       {"HTTP://there", "/"},
                                                       {"http://there?a/b", "/"},
                                                       {"*", "*"},
                                                       {"there%20:80", "there%20:80"}};
  std::string stream;
  std::string expected;
  for (const auto& [target, path] : cases) {
    stream += get(target);
    expected += answerTo("GET " + path);
  }
  stream += "PRIVATE /a HTTP/1.1\r\nContent-Length: 0\r\n\r\n" + get("/endless") + get("/late");
  expected += answerTo("PRIVATE /a") + endlessAnswer;
  for (const std::size_t pieceLength : {std::size_t{1}, std::size_t{7}, std::string::npos}) {
    RawConnection peer = send(stream, pieceLength);
    EXPECT_EQ(peer.receiveAll(), expected);
    EXPECT_FALSE(peer.error());
  }
  EXPECT_EQ(requests_.count("GET /late"), 0U);
}

TEST_F(DefaultHTTPServerTest, AConnectionThatCannotGoOnEndsInGoodOrder) {
  start();
  for (const std::string& request :
       {"GET /a HTTP/1.1\r\nConnection: Close\r\n\r\n"s, "GET /a HTTP/1.0\r\nConnection: keep-alive\r\n\r\n"s,
        "HEAD /a HTTP/1.1\r\n\r\n"s, "POST /a HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n"s,
        "POST /a HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n"s,
        "POST /a HTTP/1.1\r\nTransfer-Encoding: x\r\n\r\n"s}) {
    SCOPED_TRACE(request);
    RawConnection peer = send(request + std::string(1'000'000, '\n') + get("/late"));
    EXPECT_EQ(peer.receiveAll(), answerTo(request.substr(0, request.find(" HTTP"))));
    EXPECT_FALSE(peer.error()) << "what was sent on did not become a reset";
  }
  EXPECT_EQ(requests_.count("GET /late"), 0U);
}

TEST_F(DefaultHTTPServerTest, WhatIsNoRequestIsClosedWithoutAnAnswer) {
  start();
  for (const std::string& bytes :
       {"\x16\x03\x01\x02\0"s, "\r\n\r\n"s, "GET\r\n\r\n"s, "GET / HTTP/2.0\r\n\r\n"s, "GET /\x01 HTTP/1.1\r\n\r\n"s,
        "GET / HTTP/1.1\r\nno field\r\n\r\n"s, "G\xc3T / HTTP/1.1\r\n\r\n"s, "GET / HTTP/1.1\r\nA: b\rc\r\n\r\n"s,
        "GET / HTTP/1.1\r\nContent-Length: x\r\n\r\n"s, "GET " + std::string(10'000, '/'),
        requestOfLength(DefaultHTTPServer::maximumRequest + 1)}) {
    SCOPED_TRACE(bytes.substr(0, 50));
    for (const std::size_t pieceLength : {std::size_t{14}, std::string::npos}) {
      RawConnection peer = send(bytes, pieceLength);
      expectEnd(peer, "");
    }
  }
  EXPECT_EQ(requests_.count(""), 0U);
  RawConnection longest = send(requestOfLength(DefaultHTTPServer::maximumRequest), 14);
  EXPECT_TRUE(longest.receiveAll().starts_with("HTTP/1.1 200 OK"));
}

TEST_F(DefaultHTTPServerTest, PatienceEnds) {
  start(200ms);
  RawConnection flooding = send(get("/endless"));
  while (flooding.send(std::string(10'000, 'x'))) {  // until it is cut off
  }
  RawConnection unread = send(get("/large"));
  RawConnection trickling = RawConnection::to(server_->port());
  RawConnection silent = send("GET /");
  RawConnection idle = send(get("/"));
  std::atomic<bool> isOver = false;
  std::jthread later([&] {
    for (RawConnection* peer : {&silent, &idle, &unread}) {
      EXPECT_LT(peer->receiveAll().size(), tooMuch);
      EXPECT_NE(peer->error(), std::errc::resource_unavailable_try_again) << "it is still open";
    }
    isOver = true;
  });
  while (!isOver && trickling.send("x")) (void)send(last("/")).receiveAll();
  EXPECT_FALSE(trickling.send("x") && trickling.send("x")) << "its time began before that of the silent one";
}

TEST_F(DefaultHTTPServerTest, ManySlowConnectionsHoldNobodyUp) {
  start(1min);  // longer than anything here waits: what is closed is closed to make room
  std::vector<RawConnection> slow;
  const auto answers = [&slow](std::size_t which) {
    return slow[which].send("\r\n") && slow[which].receive(answerTo("GET /").size()) == answerTo("GET /");
  };
  while (slow.size() < 200) slow.push_back(send("GET / HTTP/1.1\r\n"));
  expectService();
  for (std::size_t i = 0; i < slow.size(); ++i) EXPECT_TRUE(answers(i)) << "it was closed, or answered before";
  while (slow.size() < 200 + DefaultHTTPServer::maximumConnections) {
    slow.push_back(send("GET / HTTP/1.1\r\n"));
    if (slow.size() % 50 == 0) expectService();
  }
  expectEnd(slow.front(), "");
  EXPECT_TRUE(answers(slow.size() - 200)) << "only the longest there makes room";
}

TEST_F(DefaultHTTPServerTest, EndsWithConnectionsInEveryState) {
  start();
  const std::uint16_t port = server_->port();
  std::vector<RawConnection> peers;
  for (const std::string& bytes : {""s, "GET "s, get("/idle"), get("/large"), get("/endless")}) {
    peers.push_back(send(bytes));
  }
  ASSERT_TRUE(requests_.waitFor("GET ", 3));
  end();
  for (RawConnection& peer : peers) {
    EXPECT_LT(peer.receiveAll().size(), tooMuch);
    EXPECT_NE(peer.error(), std::errc::resource_unavailable_try_again);
  }
  EXPECT_ANY_THROW((void)RawConnection::to(port));
}

}  // namespace
}  // namespace vesko
