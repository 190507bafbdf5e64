#include "hosts/common/events/EventJson.h"

#include <utility>

#include "hosts/common/events/PeerJson.h"

namespace vesko {
namespace {

using Json = OrderedJson;

Json objectOf(const ReadyEvent& event) {
  return {{"event", "ready"},         {"version", eventVersion},    {"udpPort", event.udpPort},
          {"tcpPort", event.tcpPort}, {"httpPort", event.httpPort}, {"downloads", event.downloads}};
}

Json objectOf(const StartupFailureEvent& event) {
  return {{"event", "startupFailure"},
          {"endpoint", event.endpoint},
          {"port", event.port},
          {"message", event.message},
          {"reason", event.reason}};
}

Json peerObject(const char* name, const PeerView& peer) {
  Json object = {{"event", name}};
  object.update(vesko::objectOf(peer));
  return object;
}

Json objectOf(const PeerAppearedEvent& event) { return peerObject("peerAppeared", event.peer); }

Json objectOf(const PeerUpdatedEvent& event) { return peerObject("peerUpdated", event.peer); }

Json objectOf(const PeerDisappearedEvent& event) { return {{"event", "peerDisappeared"}, {"key", event.peer.key}}; }

Json objectOf(const TransferStartedEvent& event) {
  const bool isOut = event.direction == TransferDirection::out;
  Json object = {{"event", "transferStarted"},
                 {"transfer", event.transfer},
                 {"direction", isOut ? "out" : "in"},
                 {"ip", event.ip}};
  if (isOut) object.update({{"port", event.port}, {"systemSignature", event.systemSignature}});
  return object;
}

Json objectOf(const ProgressEvent& event) {
  return {{"event", "progress"},
          {"transfer", event.transfer},
          {"elementCount", event.elementCount},
          {"finishedElements", event.finishedElements},
          {"totalSize", event.totalSize},
          {"finishedBytes", event.finishedBytes},
          {"name", event.name}};
}

Json objectOf(const TextReceivedEvent& event) {
  return {{"event", "textReceived"}, {"transfer", event.transfer}, {"text", event.text}};
}

Json objectOf(const ItemsSavedEvent& event) {
  return {{"event", "itemsSaved"}, {"transfer", event.transfer}, {"path", event.path}};
}

Json objectOf(const FinishedEvent& event) {
  return {{"event", "finished"},  {"transfer", event.transfer}, {"elements", event.elements},
          {"bytes", event.bytes}, {"seconds", event.seconds},   {"skipped", event.skipped}};
}

Json objectOf(const FailedEvent& event) {
  Json object = {{"event", "failed"},
                 {"transfer", event.transfer},
                 {"reason", nameOfFailureReason(event.reason)},
                 {"message", event.message}};
  if (!event.element.empty()) object["element"] = event.element;
  if (!event.keptPath.empty()) object["keptPath"] = event.keptPath;
  return object;
}

Json objectOf(const SkippedEvent& event) {
  return {{"event", "skipped"},
          {"transfer", event.transfer},
          {event.direction == TransferDirection::in ? "element" : "path", event.name},
          {"reason", nameOfFailureReason(event.reason)},
          {"message", event.message}};
}

Json objectOf(const RefusedEvent& event) { return {{"event", "refused"}, {"ip", event.ip}}; }

Json objectOf(const QuestionEvent& event) {
  return {{"event", "question"},
          {"transfer", event.transfer},
          {"ip", event.ip},
          {"elementCount", event.elementCount},
          {"totalSize", event.totalSize},
          {"name", event.name}};
}

Json objectOf(const AnswerEvent& event) {
  return {{"event", "answer"}, {"transfer", event.transfer}, {"accepted", event.isAccepted}};
}

}  // namespace

std::string jsonLine(const Event& event) {
  return lineOf(std::visit([](const auto& any) { return objectOf(any); }, event));
}

std::optional<Event> parsePeerEvent(std::string_view line) {
  const nlohmann::json object = parseJson(line);
  const auto name = textIn(object, "event");
  if (name == "peerDisappeared") {
    auto key = textIn(object, "key");
    if (!key) return std::nullopt;
    PeerDisappearedEvent event;
    event.peer.key = std::move(*key);
    return event;
  }
  if (name != "peerAppeared" && name != "peerUpdated") return std::nullopt;
  auto peer = peerIn(object);
  if (!peer) return std::nullopt;
  if (name == "peerAppeared") return PeerAppearedEvent{std::move(*peer)};
  return PeerUpdatedEvent{std::move(*peer)};
}

std::string jsonArray(const std::vector<PeerView>& peers) { return lineOf(arrayOf(peers)); }

std::optional<std::vector<PeerView>> parsePeers(std::string_view array) { return peersIn(parseJson(array)); }

}  // namespace vesko
