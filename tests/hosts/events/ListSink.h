#pragma once

#include "hosts/common/events/EventJson.h"
#include "tests/support/EventList.h"

namespace vesko {

/// The events of a host, as lines of JSON.
class ListSink : public EventSink, public EventList {
 public:
  void publish(Event event) override { add(jsonLine(event)); }
};

}  // namespace vesko
