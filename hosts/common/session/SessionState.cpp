#include "hosts/common/session/SessionState.h"

#include <utility>

namespace vesko {

void SessionState::apply(const Event& event) {
  std::visit(Overloaded{
                 [this](const PeerAppearedEvent& any) { peers_.insert_or_assign(any.peer.key, any.peer); },
                 [this](const PeerUpdatedEvent& any) { peers_.insert_or_assign(any.peer.key, any.peer); },
                 [this](const PeerDisappearedEvent& any) { peers_.erase(any.peer.key); },
                 [this](const TransferStartedEvent& any) { begin(any); },
                 [this](const ProgressEvent& any) {
                   if (auto* const transfer = running(any.transfer)) transfer->progress = any;
                 },
                 [this](const TextReceivedEvent& any) {
                   if (auto* const transfer = running(any.transfer)) transfer->isText = true;
                 },
                 [this](const ItemsSavedEvent& any) {
                   if (auto* const transfer = running(any.transfer)) transfer->path = any.path;
                 },
                 [this](const FinishedEvent& any) { noteEnd(any); },
                 [this](const FailedEvent& any) { noteEnd(any); },
                 [](const auto& /*any*/) {},
             },
             event);
}

void SessionState::begin(const TransferStartedEvent& event) {
  TransferView view;
  view.id = event.transfer;
  view.direction = event.direction;
  view.ip = event.ip;
  view.port = event.port;
  view.systemSignature = event.systemSignature;
  view.name = event.name;
  transfers_.try_emplace(event.transfer, std::move(view));
}

TransferView* SessionState::running(TransferId id) {
  const auto found = transfers_.find(id);
  return found == transfers_.end() || found->second.hasEnded() ? nullptr : &found->second;
}

template <class End>
void SessionState::noteEnd(const End& event) {
  auto* const transfer = running(event.transfer);
  if (transfer == nullptr) return;
  transfer->end = event;
  ended_.push_back(event.transfer);
  forgetOldEnds();
}

void SessionState::forgetOldEnds() {
  if (ended_.size() <= endedTransfersKept) return;
  transfers_.erase(ended_.front());
  ended_.pop_front();
}

}  // namespace vesko
