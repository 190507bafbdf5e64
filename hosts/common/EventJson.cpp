#include "hosts/common/EventJson.h"

#include <nlohmann/json.hpp>

namespace vesko {
namespace {

using Json = nlohmann::ordered_json;

Json objectOf(const ReadyEvent& event) {
  return {{"event", "ready"}, {"version", eventVersion}, {"tcpPort", event.tcpPort}, {"downloads", event.downloads}};
}

Json objectOf(const StartupFailureEvent& event) {
  return {{"event", "startupFailure"},
          {"endpoint", event.endpoint},
          {"port", event.port},
          {"message", event.message},
          {"reason", event.reason}};
}

Json objectOf(const TransferStartedEvent& event) {
  return {{"event", "transferStarted"},
          {"transfer", event.transfer},
          {"direction", event.direction == TransferDirection::in ? "in" : "out"},
          {"ip", event.ip}};
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

}  // namespace

std::string jsonLine(const Event& event) {
  const Json object = std::visit([](const auto& any) { return objectOf(any); }, event);
  return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace vesko
