#include "hosts/cli/JsonReporter.h"

#include "hosts/common/events/EventJson.h"

namespace vesko {

void JsonReporter::report(const Event& event) {
  if (isQuiet_ && std::holds_alternative<ProgressEvent>(event)) return;
  console_.print(jsonLine(event) + '\n');
}

}  // namespace vesko
