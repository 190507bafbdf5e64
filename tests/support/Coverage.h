#pragma once

namespace vesko {

/// Where scripts/coverage counts what runs: writes the counts of this process, a child of a test, which otherwise only
/// an orderly end would do; also as another user, who cannot write where the parent does. What ends by an assertion
/// needs no call.
void keepCoverage();

}  // namespace vesko
