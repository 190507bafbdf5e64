#include "hosts/common/ControlMessage.h"

#include <algorithm>
#include <array>
#include <utility>

#include "hosts/common/PeerJson.h"

namespace vesko {
namespace {

constexpr std::array requestNames = {
    std::pair(ControlRequest::peers, "peers"),
    std::pair(ControlRequest::watch, "watch"),
    std::pair(ControlRequest::announce, "announce"),
};

bool isOfOurVersion(const nlohmann::json& object) {
  const auto version = object.find("version");
  return version != object.end() && version->is_number_integer() && *version == controlVersion;
}

}  // namespace

std::string controlLine(ControlRequest request) {
  const auto* const name = std::ranges::find(requestNames, request, &decltype(requestNames)::value_type::first);
  return lineOf({{"request", name->second}, {"version", controlVersion}});
}

std::optional<ControlRequest> parseControlRequest(std::string_view line) {
  const nlohmann::json object = parseJson(line);
  const auto text = textIn(object, "request");
  if (!text || !isOfOurVersion(object)) return std::nullopt;
  for (const auto& [request, name] : requestNames) {
    if (*text == name) return request;
  }
  return std::nullopt;
}

std::string controlPeersLine(const std::vector<PeerView>& peers) {
  return lineOf({{"event", "peers"}, {"version", controlVersion}, {"peers", arrayOf(peers)}});
}

std::optional<std::vector<PeerView>> parseControlPeers(std::string_view line) {
  const nlohmann::json object = parseJson(line);
  if (textIn(object, "event") != "peers" || !isOfOurVersion(object)) return std::nullopt;
  const auto peers = object.find("peers");
  return peers == object.end() ? std::nullopt : peersIn(*peers);
}

std::string controlAnnouncedLine() { return lineOf({{"event", "announced"}, {"version", controlVersion}}); }

std::string controlErrorLine(std::string_view message) {
  return lineOf({{"event", "error"}, {"version", controlVersion}, {"message", message}});
}

}  // namespace vesko
