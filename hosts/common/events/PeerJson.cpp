#include "hosts/common/events/PeerJson.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "hosts/common/session/PeerAddress.h"

namespace vesko {
namespace {

using Json = nlohmann::json;
using std::chrono::system_clock;

constexpr std::string_view timePattern = "0000-00-00T00:00:00Z";

std::string textOf(system_clock::time_point time) {
  // Seconds first: the start of the earliest day is before the earliest time that the clock can represent.
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto day = std::chrono::floor<std::chrono::days>(seconds);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(seconds - day);
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text.data();
}

bool isTime(std::string_view text) {
  if (text.size() != timePattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (timePattern[i] == '0' ? !isDigit : text[i] != timePattern[i]) return false;
  }
  return true;
}

int numberAt(std::string_view digits, std::size_t position, std::size_t length) {
  int number = 0;
  for (const char digit : digits.substr(position, length)) number = number * 10 + (digit - '0');
  return number;
}

std::optional<system_clock::time_point> timeOf(std::string_view text) {
  namespace chrono = std::chrono;
  if (!isTime(text)) return std::nullopt;
  const chrono::year_month_day date(chrono::year(numberAt(text, 0, 4)),
                                    chrono::month(static_cast<unsigned>(numberAt(text, 5, 2))),
                                    chrono::day(static_cast<unsigned>(numberAt(text, 8, 2))));
  const chrono::hours hour(numberAt(text, 11, 2));
  const chrono::minutes minute(numberAt(text, 14, 2));
  const chrono::seconds second(numberAt(text, 17, 2));
  if (!date.ok() || hour.count() > 23 || minute.count() > 59 || second.count() > 59) return std::nullopt;
  const chrono::sys_seconds time = chrono::sys_days(date) + hour + minute + second;
  // A year of four digits may be beyond the range of the clock.
  const bool isInRange = time >= chrono::ceil<chrono::seconds>(system_clock::time_point::min()) &&
                         time <= chrono::floor<chrono::seconds>(system_clock::time_point::max());
  return isInRange ? std::optional<system_clock::time_point>(time) : std::nullopt;
}

std::optional<std::uint16_t> portIn(const Json& object) {
  const auto field = object.find("port");
  if (field == object.end() || !field->is_number_unsigned()) return std::nullopt;
  const auto port = field->get<std::uint64_t>();
  if (port > std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
  return static_cast<std::uint16_t>(port);
}

}  // namespace

std::string lineOf(const OrderedJson& object) {
  return object.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

OrderedJson objectOf(const PeerView& peer) {
  return {{"key", peer.key},       {"ip", peer.ip},
          {"port", peer.port},     {"systemSignature", peer.systemSignature},
          {"avatar", peer.avatar}, {"since", textOf(peer.since)}};
}

OrderedJson arrayOf(const std::vector<PeerView>& peers) {
  OrderedJson array = OrderedJson::array();
  for (const PeerView& peer : peers) array.push_back(objectOf(peer));
  return array;
}

Json parseJson(std::string_view text) { return Json::parse(text, nullptr, false); }

std::optional<std::string> textIn(const Json& object, const char* field) {
  const auto found = object.find(field);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::optional<PeerView> peerIn(const Json& object) {
  const auto key = textIn(object, "key");
  const auto ip = textIn(object, "ip");
  const auto port = portIn(object);
  const auto systemSignature = textIn(object, "systemSignature");
  const auto avatar = textIn(object, "avatar");
  const auto since = timeOf(textIn(object, "since").value_or(""));
  if (!key || !ip || !port || !systemSignature || !avatar || !since) return std::nullopt;
  // A valid address without a port.
  if (parsePeerAddress(*ip, 0) != PeerAddress{*ip, 0}) return std::nullopt;
  return PeerView{*key, *ip, *port, *systemSignature, *avatar, *since};
}

std::optional<std::vector<PeerView>> peersIn(const Json& array) {
  if (!array.is_array()) return std::nullopt;
  std::vector<PeerView> peers;
  for (const Json& object : array) {
    auto peer = peerIn(object);
    if (!peer) return std::nullopt;
    peers.push_back(std::move(*peer));
  }
  return peers;
}

}  // namespace vesko
