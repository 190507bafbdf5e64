#include <charconv>
#include <thread>

#include "Platform/http/DefaultHTTPServer.h"
#include "Platform/text/Base64.h"
#include "tests/socket/library/VeskoServerFixture.h"
#include "tests/support/ResourceGuard.h"
#include "tests/support/ResourceLimit.h"

namespace vesko {
namespace {

using namespace std::string_literals;

const std::string request = "GET /virno/avatar HTTP/1.1\r\nHost: here\r\n\r\n";
const std::string lastRequest = "GET /virno/avatar HTTP/1.1\r\nConnection: close\r\n\r\n";

/// A service that has a picture to serve.
class HostileHttpTest : private ResourceGuard, public VeskoServerTest {
 protected:
  HostileHttpTest() {
    ::setenv("HOME", home_.path().c_str(), 1);
    home_.write(".face", *base64Decoded("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWj"
                                        "R9awAAAABJRU5ErkJggg=="));
    Log::setSink(nullptr);
    server_->startServer();
  }

  [[nodiscard]] RawConnection open() const { return RawConnection::to(server_->boundHttpPort()); }

  [[nodiscard]] std::string answerTo(std::string_view bytes, std::size_t pieceLength = std::string_view::npos) const {
    RawConnection connection = open();
    connection.send(bytes, pieceLength);
    std::string answer = connection.receiveAll();
    EXPECT_NE(connection.error(), std::errc::resource_unavailable_try_again) << "it is still open";
    return answer;
  }

  [[nodiscard]] bool serves() const { return answerTo(lastRequest).starts_with("HTTP/1.1 200 OK\r\n"); }

  TemporaryFolder home_;
};

TEST_F(HostileHttpTest, RequestsCutAnywhere) {
  for (std::size_t length = 0; length <= request.size(); ++length) {
    RawConnection closed = open();
    closed.send(request.substr(0, length));
    closed.close();
    RawConnection reset = open();
    reset.send(request.substr(0, length));
    reset.reset();
  }
  EXPECT_TRUE(serves());
}

TEST_F(HostileHttpTest, TheLengthOfAllFieldsIsWhatCounts) {
  const auto withField = [](std::size_t bytes) {
    const std::string beginning = "GET /virno/avatar HTTP/1.1\r\nConnection: close\r\nA: ";
    return beginning + std::string(bytes - beginning.size() - 4, 'x') + "\r\n\r\n";
  };
  const auto withLines = [](std::size_t count) {
    std::string lines = lastRequest.substr(0, lastRequest.size() - 2);
    for (std::size_t i = 0; i < count; ++i) lines += "A:b\r\n";
    return lines + "\r\n";
  };
  const std::size_t mostLines = (DefaultHTTPServer::maximumRequest - lastRequest.size()) / 5;
  const struct {
    std::string bytes;
    bool isServed;
  } cases[] = {{withField(DefaultHTTPServer::maximumRequest), true},
               {withField(DefaultHTTPServer::maximumRequest + 1), false},
               {withLines(mostLines), true},
               {withLines(mostLines + 1), false},
               {withLines(10'000), false},
               {std::string(100'000, 'G'), false},
               {"GET " + std::string(100'000, ' '), false},
               {"GET / HTTP/1.1\r\nA: b\r\n" + std::string(100'000, ' '), false},
               {"GET / HTTP/1.1\r\nA: b\r\n" + std::string(100'000, '\r'), false},
               {"GET / HTTP/1.1\r\n" + std::string(100'000, 'A'), false}};
  for (const auto& [bytes, isServed] : cases) {
    SCOPED_TRACE(bytes.substr(0, 30) + "... " + std::to_string(bytes.size()));
    for (const std::size_t pieceLength : {std::size_t{1000}, std::string::npos}) {
      EXPECT_EQ(answerTo(bytes, pieceLength).starts_with("HTTP/1.1 200 OK\r\n"), isServed);
    }
  }
  EXPECT_TRUE(serves());
}

TEST_F(HostileHttpTest, NonsenseGetsAnAnswerOrNone) {
  const auto withFields = [](const std::string& fields) { return "POST / HTTP/1.1\r\n" + fields + "\r\n"; };
  const struct {
    std::string bytes, status;  ///< "": no answer
  } cases[] = {
      {"GET /virno/avatar\r\n", ""},
      {"GET /virno/avatar\r\n\r\n", ""},
      {"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", ""},
      {"GET / HTTP/1.2\r\n\r\n", ""},
      {"GET / HTTP/9.9\r\n\r\n", ""},
      {"GET / HTTP/1.10\r\n\r\n", ""},
      {"GET / http/1.1\r\n\r\n", ""},
      {"GET  HTTP/1.1\r\n\r\n", ""},
      {"GET / / HTTP/1.1\r\n\r\n", ""},
      {" GET / HTTP/1.1\r\n\r\n", ""},
      {"GET / HTTP/1.1\n\n", ""},
      {"GET /\0 HTTP/1.1\r\n\r\n"s, ""},
      {"GE\0T / HTTP/1.1\r\n\r\n"s, ""},
      {withFields("A\0: b\r\n"s), ""},
      {withFields("A: b\0c\r\n"s), ""},
      {withFields(": b\r\n"), ""},
      {withFields(" A: b\r\n"), ""},
      {withFields("A : b\r\n"), ""},
      {"GET /\0"s, ""},
      {"GET * HTTP/1.0\r\n\r\n", "400 Bad Request"},
      {"OPTIONS * HTTP/1.0\r\n\r\n", "400 Bad Request"},
      {"CONNECT there:80 HTTP/1.0\r\n\r\n", "400 Bad Request"},
      {"GET http://there/virno/avatar HTTP/1.0\r\n\r\n", "200 OK"},
      {"GET //virno/avatar HTTP/1.0\r\n\r\n", "400 Bad Request"},
      {"GET /virno/../virno/avatar HTTP/1.0\r\n\r\n", "400 Bad Request"},
      {"GET /%76irno%2Favatar?%00 HTTP/1.0\r\n\r\n", "200 OK"},
      {"GET /virno/avatar%00 HTTP/1.0\r\n\r\n", "400 Bad Request"},
      {"GET /%%%0%%g0%\xFF HTTP/1.0\r\n\r\n", "400 Bad Request"},
      {withFields("Content-Length: 9223372036854775808\r\n"), "400 Bad Request"},
      {withFields("Content-Length: 18446744073709551615\r\n"), "400 Bad Request"},
      {withFields("Content-Length: 18446744073709551616\r\n"), ""},
      {withFields("Content-Length: -1\r\n"), ""},
      {withFields("Content-Length: 0x10\r\n"), ""},
      {withFields("Content-Length:\r\n"), ""},
      {withFields("Content-Length: 1\r\nContent-Length: 2\r\n"), ""},
      {withFields("Content-Length: 1\r\nTransfer-Encoding: chunked\r\n"), ""},
      {withFields("Transfer-Encoding: chunked\r\n") + "ffffffffffffffff1\r\n", "400 Bad Request"},
      {withFields("Transfer-Encoding: chunked\r\n") + "-1\r\n\0\0\0"s, "400 Bad Request"},
      {withFields("Transfer-Encoding: chunked, chunked, x\r\n") + "GET / HTTP/1.1\r\n\r\n", "400 Bad Request"},
  };
  for (const auto& [bytes, status] : cases) {
    SCOPED_TRACE(testing::PrintToString(bytes));
    for (const std::size_t pieceLength : {std::size_t{1}, std::string::npos}) {
      RawConnection connection = open();
      connection.send(bytes, pieceLength);
      connection.endSending();
      const std::string answer = connection.receiveAll();
      EXPECT_EQ(answer.substr(0, answer.find("\r\n")), status.empty() ? "" : "HTTP/1.1 " + status);
      EXPECT_EQ(answer.find("HTTP/1.1", 1), std::string::npos) << "one request, one answer";
    }
  }
  EXPECT_TRUE(serves());
}

TEST_F(HostileHttpTest, RequestsAheadOfTheirAnswers) {
  constexpr std::size_t count = 2000;
  std::string many;
  for (std::size_t i = 1; i < count; ++i) many += request;
  const std::size_t one = answerTo(lastRequest).size();
  RawConnection connection = open();
  std::jthread sender([&] { connection.send(many + lastRequest); });
  EXPECT_EQ(connection.receiveAll().size(), count * one);
  RawConnection unread = open();
  EXPECT_TRUE(unread.send(many));
  EXPECT_TRUE(serves());
}

TEST_F(HostileHttpTest, ThousandsOfIdleConnections) {
  const ResourceLimit descriptors(RLIMIT_NOFILE, ResourceLimit::maximum(RLIMIT_NOFILE));
  const auto most =
      std::min<rlim_t>(3000, ResourceLimit::maximum(RLIMIT_NOFILE) - 2 * DefaultHTTPServer::maximumConnections);
  std::vector<RawConnection> idle;
  idle.reserve(most);
  while (idle.size() < most) {
    idle.push_back(open());
    if (idle.size() % 2 == 0) idle.back().send("GET ");
    if (idle.size() % 500 == 0) {
      EXPECT_TRUE(serves());
    }
  }
  EXPECT_TRUE(serves());
}

}  // namespace
}  // namespace vesko
