#pragma once

#include <atomic>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VeskoKit/Counter.h"
#include "VeskoKit/VeskoPeer.h"
#include "VeskoKit/VeskoTransferOutcome.h"

namespace vesko {

class Data;
class DispatchQueue;
class FileHandle;
class GCDAsyncSocket;
class GCDAsyncSocketDelegate;
class IncomingTransferRoom;
class ReceivedItemStorage;
class VeskoIncomingTransfer;
enum class TransferLimit;
struct SocketError;

/// Hears how incoming transfers get on. Every call comes on the queue of the transfer, which all incoming transfers of
/// a service share: what takes long belongs elsewhere.
class VeskoIncomingTransferDelegate {
 public:
  virtual ~VeskoIncomingTransferDelegate() = default;

  /// A connection was accepted; nothing has been read yet. Once.
  virtual void incomingTransferDidStart(VeskoIncomingTransfer& /*transfer*/) {}

  /// Everything announced has arrived and has its final place. Once.
  virtual void incomingTransferDidFinish(VeskoIncomingTransfer& /*transfer*/) {}

  /// Keeps its place for programs that count on the order of these operations; never called.
  virtual void incomingTransferReserved(VeskoIncomingTransfer& /*transfer*/) {}

  /// After the metadata, each name, each completed body read, about every megabyte within one, and at each element's
  /// end. `totalSize` is what the sender announced and may be untrue; `finishedBytes` counts bytes of bodies only. Name
  /// and path are absent in the first report; `currentPath` lies in the storage folder and is "" for a text.
  virtual void incomingTransferDidProgress(VeskoIncomingTransfer& /*transfer*/, std::uint64_t /*elementCount*/,
                                           std::uint64_t /*finishedElements*/, std::uint64_t /*totalSize*/,
                                           std::uint64_t /*finishedBytes*/,
                                           const std::optional<std::string>& /*currentName*/,
                                           const std::optional<std::string>& /*currentPath*/) {}

  /// A snippet of text has arrived whole; `text` is UTF-8, of 64 MiB at most (`VeskoText::maximumLength`), and may hold
  /// anything else.
  virtual void incomingTransferDidReceiveText(VeskoIncomingTransfer& /*transfer*/, const std::string& /*text*/) {}

  /// What arrived has moved to `path`, its final place; "" when there was nothing to move. Several items, and one that
  /// is named as storage folders are, stand in a folder "Received by Vesko at" and the start time. Where the name is
  /// taken a number stands before its extension; a name beyond 255 bytes loses characters before the number.
  virtual void incomingTransferDidSaveItems(VeskoIncomingTransfer& /*transfer*/, const std::string& /*path*/) {}
};

/// Decides who and what is let in. Called on the queue that all incoming transfers of a service share: what takes long
/// belongs elsewhere.
class VeskoIncomingTransferGuard {
 public:
  virtual ~VeskoIncomingTransferGuard() = default;

  /// A connection has come from `address` (IPv4, dotted decimal). False: it is reset before anything is read, and
  /// nobody hears of a transfer.
  [[nodiscard]] virtual bool admitsConnectionFrom(const std::string& /*address*/) { return true; }

  /// The header of a transfer's first element has arrived, and nothing is stored yet. The transfer reads nothing more
  /// until its `proceed` or `refuse` is called, here or later. Once; never for a transfer without elements.
  virtual void incomingTransferAwaitsDecision(VeskoIncomingTransfer& transfer);
};

/// What a service decides for its incoming transfers.
struct VeskoIncomingTransferSettings {
  static constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

  std::string downloadsFolder;            ///< where items go; empty: the current user's downloads folder
  bool keepPartial = false;               ///< keep what had fully arrived when a transfer fails
  std::uint64_t maximumSize = unlimited;  ///< bytes of all bodies; one that announces or brings more fails
  std::shared_ptr<VeskoIncomingTransferGuard> guard;
  std::shared_ptr<VeskoTransferOutcomeDelegate> outcomeDelegate;
};

/// The receiving end of one transfer: reads the stream from an accepted connection and stores what it carries.
///
/// A name that could lead out of the storage folder ("unsafeName"), is not UTF-8 ("invalidText"), or has more than
/// 4,096 bytes or 256 components ("limit") ends the transfer before anything of its element is written. So does a
/// sender that sends nothing for 60 seconds within a body, or 5 elsewhere ("timedOut").
///
/// Made on the queue it is given, and used there; the counters may be read on any thread.
class VeskoIncomingTransfer : public std::enable_shared_from_this<VeskoIncomingTransfer> {
 public:
  /// Tags of the reads.
  static constexpr std::int64_t tagMetadata = 1;
  static constexpr std::int64_t tagFileSize = 2;
  static constexpr std::int64_t tagFileBody = 3;
  static constexpr std::int64_t tagFileName = 4;

  /// A transfer for an accepted connection, its first read already issued; `queue` is the socket's delegate queue. A
  /// `Kind` of the host's own has a constructor that takes the same and hands it on.
  template <std::derived_from<VeskoIncomingTransfer> Kind = VeskoIncomingTransfer>
  [[nodiscard]] static std::shared_ptr<Kind> make(std::shared_ptr<GCDAsyncSocket> socket, std::string key,
                                                  std::shared_ptr<VeskoIncomingTransferDelegate> delegate,
                                                  std::shared_ptr<DispatchQueue> queue,
                                                  VeskoIncomingTransferSettings settings = {}) {
    auto transfer = std::make_shared<Kind>(std::move(socket), std::move(key), std::move(delegate), std::move(queue),
                                           std::move(settings));
    transfer->begin();
    return transfer;
  }

  /// What `make` begins with: reads nothing yet.
  VeskoIncomingTransfer(std::shared_ptr<GCDAsyncSocket> socket, std::string key,
                        std::shared_ptr<VeskoIncomingTransferDelegate> delegate, std::shared_ptr<DispatchQueue> queue,
                        VeskoIncomingTransferSettings settings);
  virtual ~VeskoIncomingTransfer();
  VeskoIncomingTransfer(const VeskoIncomingTransfer&) = delete;
  VeskoIncomingTransfer& operator=(const VeskoIncomingTransfer&) = delete;

  Counter<std::uint64_t> elementCount;             ///< elements announced
  Counter<std::uint64_t> totalSize;                ///< bytes announced; passed on, never trusted
  Counter<std::uint64_t> byteFinished;             ///< bytes of all completed elements
  Counter<std::uint64_t> currentElementSize;       ///< bytes of the current body; 0 for a folder
  Counter<std::uint64_t> currentElementPlusOne;    ///< number of the current element, from 1 on
  Counter<std::uint64_t> currentSize;              ///< bytes of the current body in completed reads
  Counter<std::uint64_t> partialSize;              ///< bytes of the body read in progress
  Counter<std::uint64_t> lastReportedPartialSize;  ///< `partialSize` at the last report made from it
  Counter<std::uint64_t> queuedSize;               ///< bytes of the current body for which reads were issued

  /// The connection; none once the transfer is over, which may be before its outcome. This and the following: on the
  /// transfer's queue only.
  [[nodiscard]] const std::shared_ptr<GCDAsyncSocket>& socket() const noexcept { return socket_; }
  [[nodiscard]] const std::string& basePath() const noexcept { return basePath_; }  ///< where what arrives goes
  [[nodiscard]] const std::string& currentBasePath() const noexcept { return currentBasePath_; }
  [[nodiscard]] const std::string& currentNameBuffer() const noexcept { return currentNameBuffer_; }
  [[nodiscard]] std::string currentName() const { return currentName_.value_or(""); }
  [[nodiscard]] std::string currentPath() const { return currentPath_.value_or(""); }
  [[nodiscard]] const std::shared_ptr<FileHandle>& currentFile() const noexcept { return currentFile_; }
  [[nodiscard]] const std::optional<std::string>& buffer() const noexcept { return buffer_; }  ///< of a text under way
  [[nodiscard]] const std::shared_ptr<VeskoIncomingTransferDelegate>& delegate() const noexcept { return delegate_; }

  /// These never change; any thread.
  [[nodiscard]] const std::string& key() const noexcept { return key_; }
  [[nodiscard]] std::chrono::system_clock::time_point startTime() const noexcept { return startTime_; }
  [[nodiscard]] const std::string& remoteAddress() const noexcept { return remoteAddress_; }  ///< the sender's

  /// Room for the host to keep who has sent this, and what came; the transfer never reads or fills it. One thread at a
  /// time.
  [[nodiscard]] std::shared_ptr<VeskoPeer>& peer() noexcept { return peer_; }
  [[nodiscard]] std::vector<std::string>& receivedNames() noexcept { return receivedNames_; }
  [[nodiscard]] std::vector<std::string>& receivedPaths() noexcept { return receivedPaths_; }

  /// `length` random letters and digits. Requires: `length` at least 1.
  [[nodiscard]] virtual std::string generateRandomStringWithLength(std::int64_t length) const;

  /// Starts the next element, or ends the transfer when all announced ones are done.
  virtual void doNextFile();

  /// Issues reads for the current body, or completes the element when all of it has arrived.
  virtual void doNextChunk();

  /// Breaks the transfer off as a failure would, unless it has already ended: the connection is reset, what arrived is
  /// removed (or kept, by the settings), and the outcome is "cancelled". Any thread.
  void cancel();

  /// The guard's answer: the transfer goes on, to bring at most `maximumSize` bytes or what the settings say, if that
  /// is less, into `folder`, or where the settings say if it is empty; or it ends in the outcome "refused", and the
  /// connection is reset. Without effect while no decision is awaited. Any thread.
  ///
  /// What the death of the process leaves in another folder than the service's own is not swept at the next start.
  void proceed(std::uint64_t maximumSize = VeskoIncomingTransferSettings::unlimited, std::string folder = {});
  void refuse();

  /// True from the outcome on. Any thread.
  [[nodiscard]] bool hasEnded() const noexcept { return ended_; }

  /// Called by the transfer's socket, on the transfer's queue.
  void socketDidReadData(GCDAsyncSocket& socket, const Data& data, std::int64_t tag);
  void socketDidReadPartialDataOfLength(GCDAsyncSocket& socket, std::uint64_t length, std::int64_t tag);
  [[nodiscard]] double socketShouldTimeoutReadWithTag(GCDAsyncSocket& socket, std::int64_t tag, double elapsed,
                                                      std::uint64_t bytesDone);
  void socketDidDisconnect(GCDAsyncSocket& socket, const SocketError& error);

 private:
  friend class IncomingTransferRoom;
  class SocketEvents;

  enum class Decision : std::uint8_t { open, awaited, made };

  /// The rest of the construction, for which the object has to exist: chooses the storage folder, tells the observer of
  /// the start and issues the first read.
  void begin();

  void chooseStorage(std::string basePath);
  void didReadMetadata(const Data& data);
  void readName();
  void didReadNameBytes(std::string_view bytes);
  void didReadName();
  void didReadSize(const Data& data);
  void didReadBody(const Data& data);
  template <class Act>
  void decide(Act act);
  void takeElement();
  [[nodiscard]] bool prepareFolder();
  [[nodiscard]] bool prepareBody();
  [[nodiscard]] bool accept(std::error_code error, bool dropped);
  void readBody(std::uint64_t length);
  void completeElement();
  void finish();
  void noteActivity() noexcept;
  void reportProgress(std::uint64_t finishedElements, std::uint64_t bytesOfCurrent);
  void fail(VeskoFailureReason reason, std::string operation, std::error_code error = {});
  void failAtLimit(TransferLimit limit);
  void letGo();
  void end(VeskoTransferOutcome outcome);

  std::shared_ptr<GCDAsyncSocket> socket_;
  std::shared_ptr<SocketEvents> events_;
  std::shared_ptr<VeskoIncomingTransferDelegate> delegate_;
  const std::shared_ptr<DispatchQueue> queue_;
  VeskoIncomingTransferSettings settings_;
  std::shared_ptr<IncomingTransferRoom> room_;  // none for one that no service has accepted
  const std::string key_;
  const std::string remoteAddress_;
  const std::chrono::system_clock::time_point startTime_;
  std::string basePath_;
  std::string currentBasePath_;

  std::unique_ptr<ReceivedItemStorage> storage_;
  std::shared_ptr<VeskoPeer> peer_;
  std::vector<std::string> receivedNames_;
  std::vector<std::string> receivedPaths_;
  std::string currentNameBuffer_;
  std::optional<std::string> currentName_;
  std::optional<std::string> currentPath_;
  std::shared_ptr<FileHandle> currentFile_;
  std::shared_ptr<FileHandle> droppedBody_;  // where the body of an element goes that could not be created
  std::optional<std::string> buffer_;        // the text being received
  bool isFolder_ = false;                    // the current element
  Decision decision_ = Decision::open;
  std::vector<VeskoSkippedElement> dropped_;
  std::size_t droppedCount_ = 0;
  std::uint64_t lastActivity_ = 0;                         // among those of the room; 0 before the first
  std::chrono::steady_clock::time_point lastPartialRead_;  // of a body
  bool isOver_ = false;                                    // but for the outcome, which may be yet to come
  std::atomic<bool> ended_{false};
};

}  // namespace vesko
