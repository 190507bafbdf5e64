#pragma once

#include <string>
#include <vector>

#include "VeskoKit/VeskoItem.h"

namespace vesko {

/// The walk over chosen paths: for each, in order, the file, or the folder followed by everything inside it (depth
/// first, a folder before its contents, in the file system's order, hidden entries included). Links are followed.
///
/// What cannot be sent is left out, with everything inside it, and added to `leftOut` with the reason: what does not
/// exist, cannot be read or is no file or folder; a folder that is its own ancestor; a name the other side would refuse
/// (not UTF-8, of more than 4,096 bytes or 256 components); and what `VeskoItemErrc` lists. Every file that is said to
/// be empty is tried for a first byte. Blocks while it queries the file system; any thread.
[[nodiscard]] VeskoItems walkPaths(const std::vector<std::string>& paths, std::vector<VeskoSkippedElement>& leftOut);

}  // namespace vesko
