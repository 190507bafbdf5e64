#include <algorithm>
#include <array>
#include <cerrno>
#include <ostream>
#include <tuple>

#include "tests/faults/TransferLoop.h"

namespace vesko {
namespace {

/// What may go wrong, with the calls that it may happen to in a transfer.
struct FaultClass {
  const char* name;
  int error;
  std::vector<std::string_view> calls;
};

void PrintTo(const FaultClass& faultClass, std::ostream* stream) { *stream << faultClass.name; }

const std::array shortagesAndDefects = {
    FaultClass{"ENOSPC", ENOSPC, {"mkdirat", "openat creating", "pwrite", "splice to file", "renameat2"}},
    FaultClass{"EDQUOT", EDQUOT, {"mkdirat", "openat creating", "pwrite", "splice to file", "renameat2"}},
    FaultClass{"EIO",
               EIO,
               {"open", "openat", "openat creating", "mkdirat", "unlinkat", "stat", "fstat", "fstatat", "renameat2",
                "readdir", "fstatvfs", "pread", "pwrite", "sendfile", "splice to file"}},
    FaultClass{
        "EACCES", EACCES, {"open", "openat", "openat creating", "mkdirat", "unlinkat", "stat", "fstatat", "renameat2"}},
    FaultClass{"EMFILE", EMFILE, {"open", "openat", "openat creating", "socket", "accept4"}},
    FaultClass{"ENOMEM",
               ENOMEM,
               {"open", "openat", "openat creating", "mkdirat", "unlinkat", "stat", "fstat", "fstatat", "renameat2",
                "fdopendir", "socket", "accept4", "recv", "send", "sendfile", "splice", "splice to file", "epoll_ctl"}},
    FaultClass{"ENOBUFS", ENOBUFS, {"socket", "accept4", "connect", "send", "setsockopt", "getsockopt", "getsockname"}},
    FaultClass{"ECONNRESET", ECONNRESET, {"recv", "send", "sendfile", "splice"}},
    FaultClass{"ENOLCK", ENOLCK, {"flock"}},
};

/// What no transfer may mind.
const std::array disturbances = {
    FaultClass{"EINTR",
               EINTR,
               {"open", "openat", "openat creating", "fstatvfs", "flock", "pread", "pwrite", "recv", "send", "sendfile",
                "splice", "splice to file", "accept4"}},
    FaultClass{"fewer bytes",
               SystemFaults::fewerBytes,
               {"pread", "pwrite", "recv", "send", "sendfile", "splice", "splice to file"}},
    // Where bytes cannot go through a pipe they are copied.
    FaultClass{"ENFILE", ENFILE, {"pipe2"}},
    FaultClass{"EINVAL", EINVAL, {"splice to file"}},
};

class TransferFaultsTest : public TransferLoop,
                           public testing::WithParamInterface<std::tuple<std::string, FaultClass>> {
 protected:
  TransferFaultsTest() { begin(std::get<0>(GetParam())); }

  const FaultClass& faults_ = std::get<1>(GetParam());
};

class StorageFaultsTest : public TransferLoop, public testing::WithParamInterface<const char*> {
 protected:
  StorageFaultsTest() { begin(GetParam()); }
};

class DisturbedTransferTest : public StorageFaultsTest {};

TEST_P(TransferFaultsTest, EachCallFailsOnce) {
  for (const auto call : faults_.calls) failEachInTurn(faults_.error, {call}, 1);
}

TEST_P(TransferFaultsTest, FromOneCallOnAllFail) {
  auto lasting = faults_.calls;
  // A listener without descriptors waits for better times.
  std::erase(lasting, "accept4");
  failEachInTurn(faults_.error, lasting, SystemFaults::forever);
}

TEST_P(DisturbedTransferTest, GoesOnWhereNothingIsLost) {
  for (const auto& [name, error, calls] : disturbances) {
    for (const auto call : calls) {
      failEachInTurn(error, {call}, 3);
      if (error != EINTR) (void)strikes({error, {call}, 1, SystemFaults::forever});
    }
  }
}

/// Without renaming that never replaces, which not every file system has, the names are reserved first.
TEST_P(StorageFaultsTest, EachCallFailsOnAnOldFileSystem) {
  standing_ = {EINVAL, {"renameat2"}, 1, SystemFaults::forever};
  failEachInTurn(EINTR, {"openat creating"}, 1);
  for (const int error : {ENOSPC, EIO}) {
    for (const auto call : {"mkdirat", "openat creating", "fstatat", "renameat", "unlinkat"}) {
      const bool isOfSpace = error == ENOSPC;
      if (!isOfSpace || call != std::string_view("unlinkat")) failEachInTurn(error, {call}, 1);
    }
  }
  failEachInTurn(ENOSPC, {"mkdirat", "openat creating", "pwrite", "renameat"}, SystemFaults::forever);
}

/// Somebody may have removed the downloads folder.
TEST_P(StorageFaultsTest, EachCallFailsWhereTheFolderIsMissing) {
  removesDownloads_ = true;
  for (const int error : {ENOSPC, EDQUOT, EIO, EACCES}) {
    for (const std::size_t count : {std::size_t{1}, SystemFaults::forever}) failEachInTurn(error, {"mkdir"}, count);
  }
  failEachInTurn(EIO, {"stat"}, 1);
}

const auto nameOf = [](const auto& parameter) { return std::string(parameter.param); };
INSTANTIATE_TEST_SUITE_P(Of, TransferFaultsTest,
                         testing::Combine(testing::Values("file", "folder", "several", "text"),
                                          testing::ValuesIn(shortagesAndDefects)),
                         [](const auto& parameter) {
                           return std::get<0>(parameter.param) + std::get<1>(parameter.param).name;
                         });
INSTANTIATE_TEST_SUITE_P(Of, DisturbedTransferTest, testing::Values("file", "folder", "several", "text"), nameOf);
INSTANTIATE_TEST_SUITE_P(Of, StorageFaultsTest, testing::Values("file", "several"), nameOf);

}  // namespace
}  // namespace vesko
