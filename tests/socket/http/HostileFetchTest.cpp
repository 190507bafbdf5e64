#include "Platform/text/Base64.h"
#include "tests/socket/library/VeskoServerFixture.h"
#include "tests/support/IsSoon.h"
#include "tests/support/Png.h"
#include "tests/support/ResourceGuard.h"

namespace vesko {
namespace {

using namespace std::string_literals;

constexpr std::size_t maximumPicture = 4U << 20U;
constexpr std::size_t maximumFetches = 8;

const std::string picture = Png::ofColor("\xFF\0\0"s);

std::string withFields(const std::string& fields, const std::string& body = picture) {
  return "HTTP/1.1 200 OK\r\n" + fields + "\r\n" + body;
}

std::string withLength(const std::string& length, const std::string& body = picture) {
  return withFields("Content-Length: " + length + "\r\n", body);
}

std::string response(const std::string& body) { return withLength(std::to_string(body.size()), body); }

/// A service that fetches the pictures of machines which are all one, on 127.0.0.1.
class HostileFetchTest : private ResourceGuard, public VeskoServerTest {
 protected:
  HostileFetchTest() {
    Log::setSink(nullptr);
    server_->startDiscovery();
  }

  ~HostileFetchTest() override { waitForTasks(server_->broadcastDispatchQueue()); }

  /// A record whose picture is asked for.
  [[nodiscard]] std::shared_ptr<VeskoPeer> ask() {
    const auto port = static_cast<std::uint16_t>(machine_.port() - 1);
    auto peer = std::make_shared<VeskoPeer>("k", "127.0.0.1", port, "", VeskoPeer::TimePoint());
    server_->broadcastDispatchQueue()->async([this, peer] { server_->handleAvatar(peer); });
    return peer;
  }

  [[nodiscard]] RawConnection accept() const {
    RawConnection connection = machine_.accept();
    const std::string request = "GET /virno/avatar HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(machine_.port()) +
                                "\r\nUser-Agent: Vesko/1.0\r\nConnection: close\r\n\r\n";
    EXPECT_EQ(connection.receive(request.size()), request);
    return connection;
  }

  /// Answers the next request; back when the service has what it wants of it.
  void answer(std::string_view bytes) const {
    RawConnection connection = accept();
    connection.send(bytes);
    connection.endSending();
    (void)connection.receiveAll();
  }

  /// The picture that a machine has after `bytes` in answer to the question for it; "loading" for none.
  [[nodiscard]] std::string pictureAfter(std::string_view bytes) {
    const auto peer = ask();
    answer(bytes);
    return pictureOf(*peer);
  }

  /// The same, for an answer that the service is through with: what comes of a later one comes later.
  [[nodiscard]] std::string pictureOf(const VeskoPeer& peer) {
    const auto later = ask();
    answer(response(picture));
    EXPECT_TRUE(arrives(*later)) << "the service goes on";
    return peer.avatar();
  }

  [[nodiscard]] static bool arrives(const VeskoPeer& peer) {
    return isSoon([&] { return peer.avatar().starts_with("data:"); });
  }

  static std::string urlOf(const std::string& png) { return "data:image/png;base64," + base64Encoded(png); }

  const RawListener machine_;
};

TEST_F(HostileFetchTest, AnswersCutAnywhere) {
  const std::string whole = response(picture);
  std::vector<std::shared_ptr<VeskoPeer>> peers;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    peers.push_back(ask());
    answer(whole.substr(0, length));
    peers.push_back(ask());
    RawConnection reset = accept();
    reset.send(whole.substr(0, length));
    reset.reset();
  }
  EXPECT_EQ(pictureAfter(whole), urlOf(picture));
  for (const auto& peer : peers) EXPECT_EQ(peer->avatar(), "loading");
}

TEST_F(HostileFetchTest, Lengths) {
  const std::string length = std::to_string(picture.size());
  const struct {
    std::string answer;
    bool isTaken;
  } cases[] = {
      {withLength(length), true},
      {withLength("000" + length), true},
      {withFields(""), true},
      {withLength("0"), false},
      {withLength("1"), false},
      {withLength("-1"), false},
      {withLength("+" + length), false},
      {withLength("0x" + length), false},
      {withLength(""), false},
      {withLength("2147483648"), false},
      {withLength("4294967296"), false},
      {withLength("9223372036854775808"), false},
      {withLength("18446744073709551615"), false},
      {withLength("18446744073709551616"), false},
      {withLength("99999999999999999999999"), false},
      {withLength("1\r\nContent-Length: " + length), false},
      {withLength(length + "\r\nTransfer-Encoding: chunked"), false},
      {withFields("Transfer-Encoding: chunked\r\n"), false},
      {withFields("Transfer-Encoding: chunked\r\n", "10000000000000001\r\n" + picture + "\r\n0\r\n\r\n"), false},
      {withFields("Transfer-Encoding: chunked\r\n", "ffffffffffffffff\r\n" + picture), false},
      {withFields("Transfer-Encoding: chunked\r\n", "7fffffffffffffff\r\n" + picture), false},
  };
  for (const auto& [answer, isTaken] : cases) {
    EXPECT_EQ(pictureAfter(answer), isTaken ? urlOf(picture) : "loading") << answer.substr(0, answer.find("\x89PNG"));
  }
}

TEST_F(HostileFetchTest, Pictures) {
  const auto end = Png::chunk("IEND", "");
  const auto withData = [&](const std::string& data) { return Png::header(1, 1) + Png::chunk("IDAT", data) + end; };
  const std::string jpeg = "\xFF\xD8\xFF\xE0\0\x10JFIF\0\1\1\0\0\1\0\1\0\0\xFF\xD9"s;
  const std::string tall = Png::ofRows(1, 4096, [] {
    std::string rows;
    for (int row = 0; row < 4096; ++row) rows += "\0\xFF\0\0"s;
    return rows;
  }());
  const struct {
    const char* name;
    std::string bytes;
    bool isTaken;
  } cases[] = {
      {"a checksum that is none", picture, true},
      {"as tall as may be", tall, true},
      {"as long as may be", picture + std::string(maximumPicture - picture.size(), 'x'), true},
      {"longer", picture + std::string(maximumPicture - picture.size() + 1, 'x'), false},
      {"taller", Png::ofRows(1, 4097, std::string(std::size_t{4097} * 4, '\0')), false},
      {"a square kilometre", Png::header(1'000'000, 1'000'000) + Png::chunk("IDAT", Png::stored("")) + end, false},
      {"the widest", Png::header(0xFFFFFFFF, 0xFFFFFFFF) + Png::chunk("IDAT", Png::stored("")) + end, false},
      {"nothing wide", Png::ofRows(0, 1, "\0"s), false},
      {"nothing tall", Png::ofRows(1, 0, ""), false},
      {"the largest, of no pixels", Png::header(4096, 4096) + Png::chunk("IDAT", Png::stored("")) + end, false},
      {"broken pixels", withData("\x78\x01\x07\xFF\xFF\xFF"), false},
      {"no pixels", Png::header(1, 1) + end, false},
      {"a chunk beyond the end", Png::header(1, 1) + Png::chunk("IDAT", "", 0x7FFFFFFF) + end, false},
      {"cut", picture.substr(0, picture.size() - 13), false},
      {"a text", "This is not a picture.", false},
      {"a page", "<!DOCTYPE html><title>Sign in</title>", false},
      {"another kind", jpeg, false},
      {"a signature", Png::signature, false},
  };
  for (const auto& [name, bytes, isTaken] : cases) {
    EXPECT_EQ(pictureAfter(response(bytes)) == urlOf(bytes), isTaken) << name;
  }
}

TEST_F(HostileFetchTest, OnlyThisAnswerCounts) {
  const RawListener elsewhere;
  const std::string there = "http://127.0.0.1:" + std::to_string(elsewhere.port()) + "/virno/avatar";
  const std::string rest =
      "\r\nLocation: " + there + "\r\nContent-Length: " + std::to_string(picture.size()) + "\r\n\r\n" + picture;
  for (const auto* status :
       {"HTTP/1.1 201 Created", "HTTP/1.1 206 Partial Content", "HTTP/1.1 301 Moved Permanently", "HTTP/1.1 302 Found",
        "HTTP/1.1 307 Temporary Redirect", "HTTP/1.1 401 Unauthorized", "HTTP/1.1 500 Internal Server Error",
        "HTTP/1.1 999 ", "HTTP/1.1 2000 OK", "HTTP/1.1 -200 OK", "HTTP/2.0 200 OK", "HTTP/0.9 200 OK", "ICY 200 OK"}) {
    EXPECT_EQ(pictureAfter(status + rest), "loading") << status;
  }
  EXPECT_FALSE(elsewhere.hasWaiting());
  EXPECT_EQ(pictureAfter("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK" + rest), urlOf(picture));
}

TEST_F(HostileFetchTest, WhatNeverEndsTakesLittleMemory) {
  constexpr std::size_t most = std::size_t{256} << 20U;
  const struct {
    std::string beginning, repeated;
  } cases[] = {
      {"HTTP/1.1 200 OK\r\n\r\n", std::string(65'536, 'x')},
      {"HTTP/1.1 200 OK\r\nContent-Length: 18446744073709551615\r\n\r\n", std::string(65'536, 'x')},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "10000\r\n" + std::string(65'536, 'x') + "\r\n"},
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1;", std::string(65'536, 'x')},
      {"HTTP/1.1 200 OK\r\nA: ", std::string(65'536, 'x')},
      {"HTTP/1.1 200 OK\r\n", "Field: value\r\n"},
      {"HTTP/1.1 200 ", std::string(65'536, 'x')},
      {"", std::string(65'536, '\0')}};
  const std::size_t before = residentMemory();
  for (const auto& [beginning, repeated] : cases) {
    SCOPED_TRACE(beginning.substr(0, 60));
    std::vector<std::shared_ptr<VeskoPeer>> peers(maximumFetches);
    std::generate(peers.begin(), peers.end(), [this] { return ask(); });
    std::vector<RawConnection> connections;
    for (std::size_t i = 0; i < maximumFetches; ++i) connections.push_back(accept());
    for (auto& connection : connections) connection.send(beginning);
    std::size_t sent = 0;
    while (!connections.empty() && sent < most) {
      std::erase_if(connections, [&more = repeated](RawConnection& connection) { return !connection.send(more); });
      sent += repeated.size();
    }
    EXPECT_LT(sent, most);
    for (const auto& peer : peers) EXPECT_EQ(peer->avatar(), "loading");
  }
  if (countsMemory) {
    EXPECT_LT(residentMemory() - before, std::size_t{64} << 20U);
  }
  EXPECT_EQ(pictureAfter(response(picture)), urlOf(picture));
}

TEST_F(HostileFetchTest, ThoseThatSayNothingHoldUpTheOthersForSoLong) {
  const std::string beginnings[maximumFetches] = {
      "",
      "H",
      "HTTP/1.1 200 OK\r\n",
      "HTTP/1.1 100 Continue\r\n\r\n",
      withLength("1000"),
      withFields("", "\x89PNG"),
      withFields("Transfer-Encoding: chunked\r\n", "1000\r\n"),
      withFields("Transfer-Encoding: chunked\r\n", "0\r\n"),
  };
  std::vector<RawConnection> silent;
  std::vector<std::shared_ptr<VeskoPeer>> peers;
  for (const std::string& beginning : beginnings) {
    peers.push_back(ask());
    silent.push_back(accept());
    silent.back().send(beginning);
  }
  const auto waiting = ask();
  waitForTasks(server_->broadcastDispatchQueue());
  EXPECT_FALSE(machine_.hasWaiting()) << "so many are asked at once";
  clock_->advance(std::chrono::seconds(10));
  answer(response(picture));
  EXPECT_TRUE(arrives(*waiting));
  for (auto& connection : silent) EXPECT_EQ(connection.receiveAll(), "");
  for (const auto& peer : peers) EXPECT_EQ(peer->avatar(), "loading");
}

}  // namespace
}  // namespace vesko
