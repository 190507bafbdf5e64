#include "Platform/files/FileDescriptor.h"

#include <unistd.h>

namespace vesko {

void FileDescriptor::reset() noexcept {
  // Never repeated: Linux frees the number even when a signal interrupts the call, and another thread may have it by
  // now.
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

}  // namespace vesko
