// What answering a broadcast takes by itself, for bench/discovery to compare with.
//
//   broadcast answer PORT                         answers each datagram by another one
//   broadcast ask ADDRESS PORT COUNT PAUSE        asks at a broadcast address, and waits for COUNT answers
//
// Each says "ready" first. `ask` reads lines with a number of rounds, and answers each by a line with the microseconds
// that each round took; between two it pauses for PAUSE microseconds. Where an answer does not come within five seconds
// it says "missing", and no more of that line's rounds are made. Both end with their standard input.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Platform/files/FileDescriptor.h"
#include "bench/Program.h"
#include "bench/Rounds.h"

namespace vesko {
namespace {

constexpr std::string_view question = "\1somebody at a machine";
constexpr std::string_view answer = "\2somebody else at another machine";

template <class Result>
Result check(Result result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::system_category(), what);
  return result;
}

sockaddr_in addressOf(const std::string& ip, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (::inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1) throw std::invalid_argument(ip);
  return address;
}

/// A UDP socket that may broadcast.
class Datagrams {
 public:
  explicit Datagrams(std::uint16_t port)
      : descriptor_(check(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket")) {
    constexpr int on = 1;
    check(::setsockopt(descriptor_.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on), "SO_BROADCAST");
    const sockaddr_in address = addressOf("0.0.0.0", port);
    check(::bind(descriptor_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
  }

  void send(std::string_view bytes, const sockaddr_in& to) const {
    const auto* const generic = reinterpret_cast<const sockaddr*>(&to);
    check(::sendto(descriptor_.get(), bytes.data(), bytes.size(), 0, generic, sizeof to), "sendto");
  }

  /// The sender of the next datagram.
  [[nodiscard]] sockaddr_in receive() const {
    std::array<char, 2048> bytes{};
    sockaddr_in from{};
    socklen_t length = sizeof from;
    auto* const generic = reinterpret_cast<sockaddr*>(&from);
    check(::recvfrom(descriptor_.get(), bytes.data(), bytes.size(), 0, generic, &length), "recvfrom");
    return from;
  }

  /// False when nothing has come by then.
  [[nodiscard]] bool isReadableBefore(bench::TimePoint deadline) const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - bench::Clock::now());
    pollfd source{descriptor_.get(), POLLIN, 0};
    return check(::poll(&source, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0))), "poll") > 0;
  }

  [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }

 private:
  FileDescriptor descriptor_;
};

void answerAll(std::uint16_t port) {
  const Datagrams socket(port);
  bench::sayReady();
  std::array<pollfd, 2> sources{{{socket.descriptor(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  while (sources[1].revents == 0) {
    check(::poll(sources.data(), sources.size(), -1), "poll");
    if (sources[0].revents != 0) socket.send(answer, socket.receive());
  }
}

/// When all have answered; none when they do not in time.
std::optional<bench::TimePoint> ask(const Datagrams& socket, const sockaddr_in& everybody, std::size_t count) {
  const auto deadline = bench::Clock::now() + bench::patience;
  std::set<in_addr_t> heard;
  socket.send(question, everybody);
  while (heard.size() < count) {
    if (!socket.isReadableBefore(deadline)) return std::nullopt;
    heard.insert(socket.receive().sin_addr.s_addr);
  }
  return bench::Clock::now();
}

void askAll(const sockaddr_in& everybody, std::size_t count, std::chrono::microseconds pause) {
  const Datagrams socket(0);
  bench::makeRounds(pause, [&] { return ask(socket, everybody, count); });
}

void run(const std::vector<std::string>& arguments) {
  const auto number = [&](std::size_t index) { return std::stoul(arguments.at(index)); };
  const auto port = [&](std::size_t index) { return static_cast<std::uint16_t>(number(index)); };
  if (arguments.size() == 2 && arguments[0] == "answer") {
    answerAll(port(1));
  } else if (arguments.size() == 5 && arguments[0] == "ask") {
    askAll(addressOf(arguments[1], port(2)), number(3), std::chrono::microseconds(number(4)));
  } else {
    throw std::invalid_argument("usage: broadcast answer PORT | broadcast ask ADDRESS PORT COUNT PAUSE");
  }
}

}  // namespace
}  // namespace vesko

int main(int argc, char** argv) { return vesko::bench::runProgram("broadcast", argc, argv, vesko::run); }
