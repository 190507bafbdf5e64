#include "hosts/common/control/ControlMessage.h"

#include <algorithm>
#include <array>
#include <utility>

#include "hosts/common/events/PeerJson.h"

namespace vesko {
namespace {

constexpr std::array requestNames = {
    std::pair(ControlRequest::Kind::peers, "peers"),
    std::pair(ControlRequest::Kind::watch, "watch"),
    std::pair(ControlRequest::Kind::announce, "announce"),
    std::pair(ControlRequest::Kind::avatar, "avatar"),
};

bool isOfOurVersion(const nlohmann::json& object) {
  const auto version = object.find("version");
  return version != object.end() && version->is_number_integer() && *version == controlVersion;
}

}  // namespace

std::string controlLine(const ControlRequest& request) {
  const auto* const name = std::ranges::find(requestNames, request.kind, &decltype(requestNames)::value_type::first);
  nlohmann::ordered_json object{{"request", name->second}, {"version", controlVersion}};
  if (!request.key.empty()) object["key"] = request.key;
  return lineOf(object);
}

std::optional<ControlRequest> parseControlRequest(std::string_view line) {
  const nlohmann::json object = parseJson(line);
  const auto text = textIn(object, "request");
  if (!text || !isOfOurVersion(object)) return std::nullopt;
  for (const auto& [kind, name] : requestNames) {
    if (*text != name) continue;
    if (kind != ControlRequest::Kind::avatar) return ControlRequest{kind};
    auto key = textIn(object, "key");
    return key ? std::optional(ControlRequest{kind, std::move(*key)}) : std::nullopt;
  }
  return std::nullopt;
}

std::string controlPeersLine(const ControlPeers& known) {
  return lineOf({{"event", "peers"},
                 {"version", controlVersion},
                 {"heardFor", known.heardFor.count()},
                 {"peers", arrayOf(known.peers)}});
}

std::optional<ControlPeers> parseControlPeers(std::string_view line) {
  const nlohmann::json object = parseJson(line);
  if (textIn(object, "event") != "peers" || !isOfOurVersion(object)) return std::nullopt;
  const auto array = object.find("peers");
  auto peers = array == object.end() ? std::nullopt : peersIn(*array);
  const auto time = object.find("heardFor");
  const double seconds = time == object.end() ? 0 : time->is_number() ? time->get<double>() : -1;
  if (!peers || seconds < 0) return std::nullopt;
  return ControlPeers{std::move(*peers), std::chrono::duration<double>(seconds)};
}

std::string controlAvatarLine(const ControlAvatar& avatar) {
  return lineOf({{"event", "avatar"}, {"version", controlVersion}, {"key", avatar.key}, {"avatar", avatar.avatar}});
}

std::optional<ControlAvatar> parseControlAvatar(std::string_view line) {
  const nlohmann::json object = parseJson(line);
  if (textIn(object, "event") != "avatar" || !isOfOurVersion(object)) return std::nullopt;
  auto key = textIn(object, "key");
  auto avatar = textIn(object, "avatar");
  if (!key || !avatar) return std::nullopt;
  return ControlAvatar{std::move(*key), std::move(*avatar)};
}

std::string controlAnnouncedLine() { return lineOf({{"event", "announced"}, {"version", controlVersion}}); }

std::string controlErrorLine(std::string_view message) {
  return lineOf({{"event", "error"}, {"version", controlVersion}, {"message", message}});
}

}  // namespace vesko
