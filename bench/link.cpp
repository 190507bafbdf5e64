// A wire between two network namespaces, in user space: bench/wire measures over it.
//
//   link SPACE SPACE RATE DELAY QUEUE
//
// SPACE is the file of a network namespace, RATE the bits per second of each direction, DELAY the microseconds that
// each takes, QUEUE the bytes that may wait for their turn in each; what comes when it is full is dropped. In each
// namespace there is a device "wire" from the line "ready" on, until SIGTERM or SIGINT. At each SIGUSR1, and at the
// end, a line of JSON tells what has passed so far, for each direction, that from the first namespace first, and how
// long after their time packets were handed over.
//
// A packet takes the time of its bytes and of its Ethernet framing. The kernel hands over what a card would cut into
// frames as one large packet: to cut here would take more than the processor of a small machine at 1 Gbit/s. It counts
// with the headers and framing of all its frames, is dropped as one, and arrives when the last of them would, so the
// device should limit its size (gso_max_size) to what a transfer does not notice.

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/files/FileDescriptor.h"
#include "Platform/text/Numbers.h"
#include "bench/Program.h"

namespace vesko {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

/// Preamble, addresses, type, checksum and the gap to the next frame.
constexpr std::size_t framing = 38;

/// What the kernel says in front of each packet: virtio_net_hdr, whose header C++ does not understand.
struct PacketInfo {
  std::uint8_t flags;
  std::uint8_t segmentation;  ///< 0 for a packet that is one frame
  std::uint16_t headerLength;
  std::uint16_t segmentLength;  ///< payload of each frame but the last
  std::uint16_t checksumStart;
  std::uint16_t checksumOffset;
};
static_assert(sizeof(PacketInfo) == 10);

constexpr std::size_t largestPacket = sizeof(PacketInfo) + 65'535;

std::system_error failure(const std::string& what) { return {errno, std::system_category(), what}; }

int check(int result, const std::string& what) {
  if (result < 0) throw failure(what);
  return result;
}

/// A PacketInfo and an IPv4 packet.
using Packet = std::vector<std::uint8_t>;

/// What a packet takes on the wire.
std::size_t wireBytes(const Packet& packet) {
  PacketInfo about{};
  std::memcpy(&about, packet.data(), sizeof about);
  const std::span<const std::uint8_t> bytes = std::span(packet).subspan(sizeof about);
  if (about.segmentation == 0 || about.segmentLength == 0) return bytes.size() + framing;
  const std::size_t ipHeader = static_cast<std::size_t>(bytes[0] & 0x0f) * 4;
  const std::size_t headers = ipHeader + static_cast<std::size_t>(bytes[ipHeader + 12] >> 4) * 4;
  const std::size_t payload = bytes.size() - headers;
  const std::size_t frames = (payload + about.segmentLength - 1) / about.segmentLength;
  return payload + frames * (headers + framing);
}

/// The wire's end in a namespace: the calling thread is in there afterwards.
FileDescriptor openEnd(const std::string& space) {
  const FileDescriptor file(check(::open(space.c_str(), O_RDONLY | O_CLOEXEC), space));
  check(::setns(file.get(), CLONE_NEWNET), "entering " + space);
  FileDescriptor end(::open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (!end) throw failure("/dev/net/tun, without which there are no devices of programs");
  ifreq request{};
  constexpr std::string_view name = "wire";
  std::copy(name.begin(), name.end(), request.ifr_name);
  request.ifr_flags = IFF_TUN | IFF_NO_PI | IFF_VNET_HDR;
  check(::ioctl(end.get(), TUNSETIFF, &request), "making a device in " + space);
  check(::ioctl(end.get(), TUNSETOFFLOAD, TUN_F_CSUM | TUN_F_TSO4), "large packets");
  return end;
}

struct Settings {
  double bitsPerSecond = 0;
  nanoseconds delay{};
  std::size_t queueBytes = 0;
};

/// One direction.
class Way {
 public:
  Way(int from, int to, const Settings& settings) : from_(from), to_(to), settings_(settings) {}

  /// Takes what has been sent.
  void take() {
    // Not for ever: what is due must go on.
    for (int count = 0; count < 64; ++count) {
      const ssize_t length = ::read(from_, buffer_.data(), buffer_.size());
      if (length <= static_cast<ssize_t>(sizeof(PacketInfo))) return;
      accept(Packet(buffer_.begin(), buffer_.begin() + length));
    }
  }

  /// Hands over what has arrived.
  void deliver() {
    while (!travelling_.empty() && travelling_.front().due <= Clock::now()) {
      const Travelling& first = travelling_.front();
      const nanoseconds late = Clock::now() - first.due;
      lateness_ += late;
      worstLateness_ = std::max(worstLateness_, late);
      if (::write(to_, first.packet.data(), first.packet.size()) < 0) ++refused_;
      travelling_.pop_front();
      ++delivered_;
    }
  }

  /// When something arrives next; none while nothing is on its way.
  [[nodiscard]] std::optional<Clock::time_point> due() const {
    return travelling_.empty() ? std::nullopt : std::optional(travelling_.front().due);
  }

  /// All since the start, but for the worst lateness (microseconds, as the mean): that is since the last report.
  [[nodiscard]] std::string report() {
    const auto packets = static_cast<double>(std::max<std::size_t>(delivered_, 1));
    std::array<char, 256> text{};
    const int length = std::snprintf(text.data(), text.size(),
                                     R"({"delivered": %zu, "dropped": %zu, "refused": %zu, "wireBytes": %zu, )"
                                     R"("meanLateness": %.1f, "worstLateness": %.1f})",
                                     delivered_, dropped_, refused_, wireBytes_, microseconds(lateness_) / packets,
                                     microseconds(std::exchange(worstLateness_, nanoseconds(0))));
    return {text.data(), static_cast<std::size_t>(length)};
  }

 private:
  struct Travelling {
    Packet packet;
    Clock::time_point due;
  };

  static double microseconds(nanoseconds time) { return std::chrono::duration<double, std::micro>(time).count(); }

  [[nodiscard]] nanoseconds timeOf(std::size_t bytes) const {
    return nanoseconds(static_cast<std::int64_t>(static_cast<double>(bytes) * 8e9 / settings_.bitsPerSecond));
  }

  void accept(Packet packet) {
    const auto now = Clock::now();
    const std::size_t bytes = wireBytes(packet);
    if (idleFrom_ - now > timeOf(settings_.queueBytes)) {
      ++dropped_;
      return;
    }
    idleFrom_ = std::max(idleFrom_, now) + timeOf(bytes);
    wireBytes_ += bytes;
    travelling_.push_back({std::move(packet), idleFrom_ + settings_.delay});
  }

  const int from_;
  const int to_;
  const Settings settings_;
  std::array<std::uint8_t, largestPacket> buffer_{};
  std::deque<Travelling> travelling_;
  Clock::time_point idleFrom_;  ///< when the sending side has sent all that waits
  std::size_t delivered_ = 0;
  std::size_t dropped_ = 0;
  std::size_t refused_ = 0;  ///< by the namespace they came to
  std::size_t wireBytes_ = 0;
  nanoseconds lateness_{};
  nanoseconds worstLateness_{};
};

/// Both directions between two ends.
class Wire {
 public:
  Wire(int one, int other, const Settings& settings)
      : ways_{Way(one, other, settings), Way(other, one, settings)}, ends_{one, other} {}

  /// Forwards until it is told to end by a signal, which `signals` reads.
  void run(int signals) {
    std::array<pollfd, 3> sources{{{ends_[0], POLLIN, 0}, {ends_[1], POLLIN, 0}, {signals, POLLIN, 0}}};
    for (bool goesOn = true; goesOn;) {
      wait(sources);
      for (std::size_t way = 0; way < ways_.size(); ++way) {
        if (sources[way].revents != 0) ways_[way].take();
      }
      for (Way& way : ways_) way.deliver();
      if (sources[2].revents != 0) goesOn = answer(signals);
    }
  }

 private:
  void wait(std::span<pollfd> sources) const {
    std::optional<Clock::time_point> next = ways_[0].due();
    if (const auto other = ways_[1].due(); other && (!next || *other < *next)) next = other;
    if (!next) {
      ::ppoll(sources.data(), sources.size(), nullptr, nullptr);
      return;
    }
    const auto left = std::max<nanoseconds>(*next - Clock::now(), nanoseconds(0));
    const timespec time{left / std::chrono::seconds(1), (left % std::chrono::seconds(1)).count()};
    ::ppoll(sources.data(), sources.size(), &time, nullptr);
  }

  /// False when the signal was one to end.
  [[nodiscard]] bool answer(int signals) {
    signalfd_siginfo signal{};
    if (::read(signals, &signal, sizeof signal) < 0) throw failure("signals");
    std::printf("[%s, %s]\n", ways_[0].report().c_str(), ways_[1].report().c_str());
    std::fflush(stdout);
    return signal.ssi_signo == SIGUSR1;
  }

  std::array<Way, 2> ways_;
  std::array<int, 2> ends_;
};

FileDescriptor openSignals() {
  sigset_t set{};
  ::sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT, SIGUSR1}) ::sigaddset(&set, number);
  check(::sigprocmask(SIG_BLOCK, &set, nullptr), "sigprocmask");
  return FileDescriptor(check(::signalfd(-1, &set, SFD_CLOEXEC), "signalfd"));
}

/// By default the kernel may wake us 50 microseconds late, which is half of a short delay, and later when programs wait
/// for the processor. A wire waits for none; where that is not permitted, the lateness in the report tells.
void becomePunctual() {
  check(::prctl(PR_SET_TIMERSLACK, 1), "timer slack");
  sched_param priority{};
  priority.sched_priority = 1;
  static_cast<void>(::sched_setscheduler(0, SCHED_FIFO, &priority));
}

std::uint64_t numberIn(std::string_view text) {
  const auto number = wholeNumber<std::uint64_t>(text);
  if (!number) throw std::invalid_argument(std::string(text) + " is no number");
  return *number;
}

void run(const std::vector<std::string>& arguments) {
  if (arguments.size() != 5) throw std::invalid_argument("usage: link SPACE SPACE RATE DELAY QUEUE");
  const Settings settings{static_cast<double>(numberIn(arguments[2])),
                          std::chrono::microseconds(numberIn(arguments[3])), numberIn(arguments[4])};
  if (settings.bitsPerSecond == 0) throw std::invalid_argument("RATE must be more than 0");
  const FileDescriptor signals = openSignals();
  const FileDescriptor one = openEnd(arguments[0]);
  const FileDescriptor other = openEnd(arguments[1]);
  becomePunctual();
  std::puts("ready");
  std::fflush(stdout);
  Wire(one.get(), other.get(), settings).run(signals.get());
}

}  // namespace
}  // namespace vesko

int main(int argc, char** argv) { return vesko::bench::runProgram("link", argc, argv, vesko::run); }
