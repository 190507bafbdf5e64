#include "VeskoKit/VeskoIncomingTransfer.h"

#include <algorithm>
#include <utility>

#include "Platform/files/FileHandle.h"
#include "Platform/files/FileManager.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "Platform/text/TextEncoding.h"
#include "VeskoKit/IncomingTransferRoom.h"
#include "VeskoKit/Log.h"
#include "VeskoKit/PathText.h"
#include "VeskoKit/RandomText.h"
#include "VeskoKit/ReceivedItemStorage.h"
#include "VeskoKit/TransferFailure.h"
#include "VeskoKit/TransferLimit.h"
#include "VeskoKit/TransferStream.h"
#include "VeskoKit/VeskoItem.h"

namespace vesko {

namespace {

/// Seconds for the metadata, for each read of a name and for a size; and for the next bytes of a body.
constexpr double headerTimeout = 5.0;
constexpr double bodyTimeout = 60.0;

/// Bytes in one read of a body, and how many reads are queued. There is always a next read, so the socket need not wait
/// for this transfer between two reads.
constexpr std::uint64_t bodyReadLength = 10'485'760;
constexpr int bodyReadsAtStart = 4;

/// Bytes between two reports of progress within one read of a body.
constexpr std::uint64_t partialReportInterval = 1'024'000;

/// Letters and digits at the end of the storage folder's name; see `DeliveryNames`.
constexpr std::int64_t storageNameLength = 32;

}  // namespace

/// The delegate of the socket. It holds the transfer weakly: the transfer may be destroyed while events are on their
/// way.
class VeskoIncomingTransfer::SocketEvents final : public GCDAsyncSocketDelegate {
 public:
  explicit SocketEvents(std::weak_ptr<VeskoIncomingTransfer> transfer) : transfer_(std::move(transfer)) {}

  void socketDidReadData(GCDAsyncSocket& socket, const Data& data, std::int64_t tag) override {
    if (const auto transfer = transfer_.lock()) transfer->socketDidReadData(socket, data, tag);
  }
  void socketDidReadPartialDataOfLength(GCDAsyncSocket& socket, std::uint64_t length, std::int64_t tag) override {
    if (const auto transfer = transfer_.lock()) transfer->socketDidReadPartialDataOfLength(socket, length, tag);
  }
  double socketShouldTimeoutReadWithTag(GCDAsyncSocket& socket, std::int64_t tag, double elapsed,
                                        std::uint64_t bytesDone) override {
    const auto transfer = transfer_.lock();
    return transfer ? transfer->socketShouldTimeoutReadWithTag(socket, tag, elapsed, bytesDone) : 0.0;
  }
  void socketDidDisconnect(GCDAsyncSocket& socket, const SocketError& error) override {
    if (const auto transfer = transfer_.lock()) transfer->socketDidDisconnect(socket, error);
  }

 private:
  std::weak_ptr<VeskoIncomingTransfer> transfer_;
};

void VeskoIncomingTransferGuard::incomingTransferAwaitsDecision(VeskoIncomingTransfer& transfer) { transfer.proceed(); }

VeskoIncomingTransfer::VeskoIncomingTransfer(std::shared_ptr<GCDAsyncSocket> socket, std::string key,
                                             std::shared_ptr<VeskoIncomingTransferDelegate> delegate,
                                             std::shared_ptr<DispatchQueue> queue,
                                             VeskoIncomingTransferSettings settings)
    : socket_(std::move(socket)),
      delegate_(std::move(delegate)),
      queue_(std::move(queue)),
      settings_(std::move(settings)),
      key_(std::move(key)),
      remoteAddress_(socket_->connectedHost()),
      startTime_(queue_->clock()->now()) {}

void VeskoIncomingTransfer::begin() {
  std::error_code error;
  chooseStorage(settings_.downloadsFolder.empty() ? FileManager::downloadsDirectory(error) : settings_.downloadsFolder);
  events_ = std::make_shared<SocketEvents>(weak_from_this());
  socket_->setDelegate(events_);
  if (delegate_) delegate_->incomingTransferDidStart(*this);
  if (error) {
    // Later, so that the transfer does not end before `make` has returned it.
    queue_->async([self = shared_from_this(), error] {
      self->fail(VeskoFailureReason::storage, "finding the downloads folder", error);
    });
  } else {
    socket_->readDataToLength(TransferStream::metadataLength, headerTimeout, tagMetadata);
  }
}

void VeskoIncomingTransfer::chooseStorage(std::string basePath) {
  basePath_ = std::move(basePath);
  storage_ = std::make_unique<ReceivedItemStorage>(
      basePath_, startTime_, [this] { return generateRandomStringWithLength(storageNameLength); });
  currentBasePath_ = storage_->path();
}

std::string VeskoIncomingTransfer::generateRandomStringWithLength(std::int64_t length) const {
  return vesko::generateRandomStringWithLength(length);
}

void VeskoIncomingTransfer::socketDidReadData(GCDAsyncSocket& /*socket*/, const Data& data, std::int64_t tag) {
  if (tag == tagFileName) {
    // The log has one line for each byte of a name, even when many bytes are read at once.
    Log::lines(data.size(), "Incoming didRead", 1, tag);
  } else {
    Log::line("Incoming didRead", data.size(), tag);
  }
  if (isOver_) return;
  if (tag == tagFileName) {
    didReadNameBytes(data.view());
  } else if (tag == tagFileBody) {
    didReadBody(data);
  } else if (tag == tagFileSize) {
    didReadSize(data);
  } else if (tag == tagMetadata) {
    didReadMetadata(data);
  }
}

void VeskoIncomingTransfer::noteActivity() noexcept {
  if (room_) lastActivity_ = room_->nextActivity();
}

/// State metadata ends; name follows, or settling when there are no elements.
void VeskoIncomingTransfer::didReadMetadata(const Data& data) {
  noteActivity();
  const TransferStream::Metadata metadata = TransferStream::decodeMetadata(data);
  elementCount = metadata.elementCount;
  totalSize = metadata.totalSize;
  Log::line("Incoming transfer elements=", metadata.elementCount, metadata.totalSize);
  reportProgress(0, 0);
  if (totalSize > settings_.maximumSize) {
    failAtLimit(TransferLimit::size);
    return;
  }
  doNextFile();
}

/// To the name of the next element, or to settling.
void VeskoIncomingTransfer::doNextFile() {
  if (currentElementPlusOne >= elementCount) {
    finish();
    return;
  }
  currentElementPlusOne += 1;
  currentNameBuffer_.clear();
  currentName_.reset();
  readName();
}

/// State name: reads what has arrived, up to 0x00, and one byte more than is allowed, which shows that the name is too
/// long.
void VeskoIncomingTransfer::readName() {
  const std::uint64_t longest = TransferStream::maximumNameLength + 1 - currentNameBuffer_.size();
  socket_->readDataToByte('\0', longest, headerTimeout, tagFileName);
}

void VeskoIncomingTransfer::didReadNameBytes(std::string_view bytes) {
  const bool isWhole = bytes.back() == '\0';
  if (isWhole) bytes.remove_suffix(1);
  currentNameBuffer_ += bytes;
  if (isWhole) {
    didReadName();
  } else if (currentNameBuffer_.size() > TransferStream::maximumNameLength) {
    failAtLimit(TransferLimit::nameLength);
  } else {
    readName();
  }
}

/// State name ends; size follows. The name is checked before anything is created under it.
void VeskoIncomingTransfer::didReadName() {
  currentName_ = currentNameBuffer_;
  buffer_.reset();
  if (const auto fault = TransferFailure::faultOfName(*currentName_); fault.reason != VeskoFailureReason::none) {
    fail(fault.reason, "receiving a name", fault.error);
    return;
  }
  if (TransferStream::isText(*currentName_, elementCount)) {
    currentPath_ = "";
    buffer_ = "";
  } else {
    currentPath_ = stringByAppendingPathComponent(currentBasePath_, *currentName_);
    Log::line("Incoming path: ", *currentPath_);
  }
  reportProgress(currentElementPlusOne - 1, currentSize);
  socket_->readDataToLength(TransferStream::sizeFieldLength, headerTimeout, tagFileSize);
}

/// State size ends; decision follows for the first element if there is a guard, otherwise body.
///
/// What makes a transfer wait for the decision is only that no read is issued here. The bytes that arrive stay in the
/// system's buffer, then TCP's flow control holds the sender up. Time-outs belong to reads, so none runs either.
void VeskoIncomingTransfer::didReadSize(const Data& data) {
  noteActivity();
  const std::uint64_t sizeField = TransferStream::decodeSizeField(data);
  Log::line("Incoming item size: ", sizeField);
  isFolder_ = sizeField == TransferStream::folderMark;
  currentElementSize = isFolder_ ? 0 : sizeField;
  if (settings_.guard && decision_ == Decision::open) {
    decision_ = Decision::awaited;
    settings_.guard->incomingTransferAwaitsDecision(*this);
  } else {
    takeElement();
  }
}

/// State decision ends. An answer that the guard gives before it returns takes effect at once; answers on other threads
/// come through the queue. Second and late answers are ignored.
template <class Act>
void VeskoIncomingTransfer::decide(Act act) {
  const auto settle = [self = shared_from_this(), act] {
    if (self->isOver_ || self->decision_ != Decision::awaited) return;
    self->decision_ = Decision::made;
    act(*self);
  };
  if (queue_->isCurrent()) {
    settle();
  } else {
    queue_->async(settle);
  }
}

void VeskoIncomingTransfer::proceed(std::uint64_t maximumSize, std::string folder) {
  decide([maximumSize, folder = std::move(folder)](VeskoIncomingTransfer& self) {
    self.settings_.maximumSize = std::min(self.settings_.maximumSize, maximumSize);
    if (!folder.empty()) {
      self.chooseStorage(folder);
      if (!self.buffer_) self.currentPath_ = stringByAppendingPathComponent(self.currentBasePath_, *self.currentName_);
    }
    self.takeElement();
  });
}

void VeskoIncomingTransfer::refuse() {
  decide([](VeskoIncomingTransfer& self) { self.fail(VeskoFailureReason::refused, {}); });
}

void VeskoIncomingTransfer::takeElement() {
  // The announced total need not be true, so each body is checked before its first byte is read. The subtraction cannot
  // underflow, since the bodies before have passed this check.
  if (currentElementSize > settings_.maximumSize - byteFinished) {
    failAtLimit(TransferLimit::size);
    return;
  }
  if (isFolder_ ? prepareFolder() : prepareBody()) doNextChunk();
}

bool VeskoIncomingTransfer::prepareFolder() {
  buffer_.reset();  // a folder, even under the name of a text
  const auto prepared = storage_->prepareFolder(*currentName_);
  return accept(prepared.error, prepared.verdict == ReceivedItemStorage::Verdict::dropped);
}

bool VeskoIncomingTransfer::prepareBody() {
  if (buffer_) {
    const bool acceptable = currentElementSize <= VeskoText::maximumLength;
    if (!acceptable) failAtLimit(TransferLimit::textLength);
    return acceptable;
  }
  auto prepared = storage_->prepareFile(*currentName_, currentElementSize);
  currentFile_ = std::move(prepared.file);
  const bool dropped = prepared.verdict == ReceivedItemStorage::Verdict::dropped;
  // The next element begins after this body, so the body must be read even if it is not stored.
  if (dropped && currentElementSize > 0) {
    std::error_code error;
    droppedBody_ = FileHandle::nullDevice(error);
    if (error) return accept(error, false);
  }
  return accept(prepared.error, dropped);
}

/// Handles the result of the storage: true when the transfer goes on, with this element or without it.
bool VeskoIncomingTransfer::accept(std::error_code error, bool dropped) {
  currentBasePath_ = storage_->path();  // differs if the chosen name was taken meanwhile
  if (!error) return true;
  const VeskoFailureReason reason = TransferFailure::reasonOfStorage(error);
  if (!dropped) {
    fail(reason, "storing", error);
    return false;
  }
  if (droppedCount_++ < VeskoTransferOutcome::maximumListed) dropped_.push_back({*currentName_, reason, error});
  return true;
}

/// State body: queues several reads at first and one more with each that completes.
void VeskoIncomingTransfer::doNextChunk() {
  if (queuedSize < currentElementSize) {
    for (int allowance = queuedSize == 0 ? bodyReadsAtStart : 1; allowance > 0 && queuedSize < currentElementSize;
         --allowance) {
      const std::uint64_t length = std::min(bodyReadLength, currentElementSize - queuedSize);
      readBody(length);
      queuedSize += length;
    }
  } else if (currentSize >= currentElementSize) {
    completeElement();
  }
}

void VeskoIncomingTransfer::readBody(std::uint64_t length) {
  if (buffer_) {
    socket_->readDataToLength(length, bodyTimeout, tagFileBody);
  } else {
    socket_->readDataToLength(length, currentFile_ ? currentFile_ : droppedBody_, bodyTimeout, tagFileBody);
  }
}

void VeskoIncomingTransfer::didReadBody(const Data& data) {
  noteActivity();
  partialSize = 0;
  lastReportedPartialSize = 0;
  currentSize += data.size();
  Log::line("Incoming chunk: ", data.size(), std::uint64_t{currentSize}, std::uint64_t{currentElementSize});
  if (buffer_) buffer_->append(data.view());
  reportProgress(currentElementPlusOne - 1, currentSize);
  doNextChunk();
}

void VeskoIncomingTransfer::socketDidReadPartialDataOfLength(GCDAsyncSocket& /*socket*/, std::uint64_t length,
                                                             std::int64_t tag) {
  if (tag != tagFileBody || isOver_) return;
  noteActivity();
  lastPartialRead_ = queue_->clock()->monotonicNow();
  partialSize += length;
  if (partialSize < lastReportedPartialSize + partialReportInterval) return;
  lastReportedPartialSize = partialSize;
  reportProgress(currentElementPlusOne - 1, currentSize + partialSize);
}

/// A slow network is no failure: the time-out of a body counts from the last bytes that arrived. Metadata, names and
/// sizes get no more time; otherwise a sender could keep its place by sending a byte from time to time.
double VeskoIncomingTransfer::socketShouldTimeoutReadWithTag(GCDAsyncSocket& /*socket*/, std::int64_t tag,
                                                             double /*elapsed*/, std::uint64_t bytesDone) {
  if (tag != tagFileBody || bytesDone == 0) return 0.0;
  const std::chrono::duration<double> silence = queue_->clock()->monotonicNow() - lastPartialRead_;
  return bodyTimeout - silence.count();
}

/// State body ends; the name of the next element follows, or settling.
void VeskoIncomingTransfer::completeElement() {
  byteFinished += currentSize;
  currentSize = 0;
  queuedSize = 0;
  Log::line("Finished file");
  if (currentFile_) currentFile_->closeFile();
  currentFile_.reset();
  droppedBody_.reset();
  reportProgress(currentElementPlusOne, 0);
  if (buffer_) {
    if (!isValidUtf8(*buffer_)) {
      fail(VeskoFailureReason::invalidText, "receiving a text");
      return;
    }
    if (delegate_) delegate_->incomingTransferDidReceiveText(*this, *buffer_);
    buffer_.reset();
  }
  doNextFile();
}

void VeskoIncomingTransfer::reportProgress(std::uint64_t finishedElements, std::uint64_t bytesOfCurrent) {
  if (!delegate_) return;
  delegate_->incomingTransferDidProgress(*this, elementCount, finishedElements, totalSize,
                                         byteFinished + bytesOfCurrent, currentName_, currentPath_);
}

}  // namespace vesko
