#pragma once

#include <string>
#include <vector>

#include "VeskoKit/VeskoItem.h"

namespace vesko {

/// Lists what is at `paths` as items to be sent: for each path, in order, the file, or the folder followed by
/// everything inside it. Folders come before their contents, depth first, in the file system's order, hidden entries
/// included. Symbolic links are followed.
///
/// What cannot be sent is left out, with everything inside it, and added to `leftOut` with the reason: what does not
/// exist, cannot be read or is neither file nor folder; a folder that contains itself through a link; a name that the
/// receiver would refuse (not UTF-8, more than 4,096 bytes or 256 components); and what `VeskoItemErrc` lists. Of a
/// folder whose listing breaks off with an error, the entries listed by then are sent.
///
/// Reads the first byte of each file that is listed as empty, since files such as those of /proc say so wrongly. Blocks
/// while it asks the file system; any thread.
[[nodiscard]] VeskoItems walkPaths(const std::vector<std::string>& paths, std::vector<VeskoSkippedElement>& leftOut);

}  // namespace vesko
