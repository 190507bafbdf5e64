#include "hosts/cli/DoctorProbe.h"

#include <algorithm>

#include "hosts/cli/Lookup.h"
#include "hosts/common/session/PeerNames.h"

namespace vesko {
namespace {

constexpr std::chrono::seconds patience{2};

/// Time for further answers after the first one. One is enough for the check, so it need not wait for all.
constexpr std::chrono::milliseconds timeForOthers{200};

/// The machine that was heard, for the events of a hello; none for other events.
const PeerView* heardIn(const Event& event) {
  if (const auto* appeared = std::get_if<PeerAppearedEvent>(&event)) return &appeared->peer;
  if (const auto* updated = std::get_if<PeerUpdatedEvent>(&event)) return &updated->peer;
  return nullptr;
}

}  // namespace

HelloCheck checkHello(Program& program) {
  Lookup lookup(program);
  if (const auto failure = lookup.tryStart()) return {false, failure->reason, {}};
  // A host that runs may have been quiet for long. Its table does not show who can be heard now, only new hellos do.
  if (lookup.isHosted()) lookup.announce();
  std::map<std::string, PeerView> heard;
  auto deadline = timeIn(patience);
  while (const auto event = lookup.next(deadline)) {
    const PeerView* peer = heardIn(*event);
    if (peer == nullptr) continue;
    heard.insert_or_assign(peer->key, *peer);
    deadline = std::min(deadline, timeIn(timeForOthers));
  }
  return {true, {}, peersByName(heard)};
}

}  // namespace vesko
