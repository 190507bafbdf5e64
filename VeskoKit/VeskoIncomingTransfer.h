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

/// Is told about the progress of incoming transfers, and what arrived. Every call comes on the transfer's queue, which
/// all incoming transfers of a service share: a call that takes long delays all of them. How a transfer ended is told
/// by `VeskoTransferOutcomeDelegate`.
class VeskoIncomingTransferDelegate {
 public:
  virtual ~VeskoIncomingTransferDelegate() = default;

  /// A connection was accepted; nothing has been read yet. Called once, before the transfer is listed by the service.
  virtual void incomingTransferDidStart(VeskoIncomingTransfer& /*transfer*/) {}

  /// Everything that was announced has arrived and is in its final place, but for elements that could not be stored.
  /// Called once, unless the transfer fails.
  virtual void incomingTransferDidFinish(VeskoIncomingTransfer& /*transfer*/) {}

  /// Never called. It keeps the place of an operation, for programs that depend on their order.
  virtual void incomingTransferReserved(VeskoIncomingTransfer& /*transfer*/) {}

  /// Called after the metadata, after each name, after each completed read of a body, about once a megabyte within such
  /// a read, and at the end of each element. `totalSize` is what the sender announced and may be wrong. `finishedBytes`
  /// counts bytes of bodies only. Name and path are absent in the first report. `currentPath` lies in the temporary
  /// storage folder; it is "" for a text.
  virtual void incomingTransferDidProgress(VeskoIncomingTransfer& /*transfer*/, std::uint64_t /*elementCount*/,
                                           std::uint64_t /*finishedElements*/, std::uint64_t /*totalSize*/,
                                           std::uint64_t /*finishedBytes*/,
                                           const std::optional<std::string>& /*currentName*/,
                                           const std::optional<std::string>& /*currentPath*/) {}

  /// A whole text has arrived. `text`: valid UTF-8 of at most 64 MiB (`VeskoText::maximumLength`); it may contain any
  /// characters, control characters included.
  virtual void incomingTransferDidReceiveText(VeskoIncomingTransfer& /*transfer*/, const std::string& /*text*/) {}

  /// The items have been moved to `path`, their final place; "" when none of them could be stored. Not called for a
  /// text. `VeskoServer::downloadsFolder` says which names are given. Called before `incomingTransferDidFinish`.
  virtual void incomingTransferDidSaveItems(VeskoIncomingTransfer& /*transfer*/, const std::string& /*path*/) {}
};

/// Decides which connections and transfers are let in. Called on the queue that all incoming transfers of a service
/// share, so it must not wait: a decision that takes time is given later.
///
///     class AskUser : public VeskoIncomingTransferGuard {
///       void incomingTransferAwaitsDecision(VeskoIncomingTransfer& transfer) override {
///         // Returning without an answer holds the transfer. The answer may come on any thread.
///         ask(question, [held = transfer.shared_from_this()](bool yes) { yes ? held->proceed() : held->refuse(); });
///       }
///     };
class VeskoIncomingTransferGuard {
 public:
  virtual ~VeskoIncomingTransferGuard() = default;

  /// A connection was accepted from `address` (IPv4). False: it is reset before anything is read, and no observer is
  /// told.
  [[nodiscard]] virtual bool admitsConnectionFrom(const std::string& /*address*/) { return true; }

  /// The header of the first element has arrived, and nothing is stored yet: element count, total size, and name and
  /// size of the first element are known. The transfer reads nothing more until `proceed`, `refuse` or `cancel` is
  /// called on it, inside this call or later. There is no time-out, and a sender that gives up meanwhile shows only
  /// afterwards; but the transfer may have to give way to a new connection (`VeskoServer::maximumIncomingTransfers`).
  /// Called once; never for a transfer without elements. By default it calls `proceed`.
  virtual void incomingTransferAwaitsDecision(VeskoIncomingTransfer& transfer);
};

/// What a service passes to each of its incoming transfers. The fields are described at `VeskoServer`.
struct VeskoIncomingTransferSettings {
  static constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

  std::string downloadsFolder;            ///< where items go; empty: the current user's downloads folder
  bool keepPartial = false;               ///< keep what had arrived completely when the transfer fails
  std::uint64_t maximumSize = unlimited;  ///< bytes of all bodies, inclusive; announcing or bringing more fails
  std::shared_ptr<VeskoIncomingTransferGuard> guard;
  std::shared_ptr<VeskoTransferOutcomeDelegate> outcomeDelegate;
};

/// The receiving side of one transfer: reads the stream from an accepted connection and stores what it contains.
///
/// Made on the queue it is given, and used there only; operations for any thread say so. The counters may be read on
/// any thread. Everything is stored in a temporary folder first; see `ReceivedItemStorage`.
///
/// States, what each waits for, and what comes next:
///
///     metadata    16 bytes, within 5 seconds                 name; settling when no elements are announced
///     name        bytes up to 0x00, 5 seconds for each read  size
///     size        8 bytes, within 5 seconds                  body; decision, for the first element with a guard
///     decision    `proceed` or `refuse`                      body, or ended as "refused"
///     body        all bytes, 60 seconds for any more         name of the next element; settling after the last
///     settling    moving the items to their final place      ended; the connection is closed in good order
///     ended                                                  incomingTransferDidEnd
///
/// A failure or `cancel` leads from any state to ended: the connection is reset, and what was stored is removed, on the
/// queue "removal" where that takes long. A name that could lead out of the storage folder ("unsafeName"), is not UTF-8
/// ("invalidText"), or has more than 4,096 bytes or 256 components ("limit") is such a failure, before anything of its
/// element is written. So are more bytes than accepted ("limit") and the time-outs above ("timedOut").
class VeskoIncomingTransfer : public std::enable_shared_from_this<VeskoIncomingTransfer> {
 public:
  /// Tags of the reads: which state a completed read belongs to.
  static constexpr std::int64_t tagMetadata = 1;
  static constexpr std::int64_t tagFileSize = 2;
  static constexpr std::int64_t tagFileBody = 3;
  static constexpr std::int64_t tagFileName = 4;

  /// Makes a transfer for an accepted connection and issues its first read. `queue`: the delegate queue of the socket.
  /// `Kind`: a class of the host's own, whose constructor takes the same arguments as the one below and passes them on.
  /// `key`: a random label. Requires: called on `queue`.
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

  /// Only for `make` and derived classes: it reads nothing yet.
  VeskoIncomingTransfer(std::shared_ptr<GCDAsyncSocket> socket, std::string key,
                        std::shared_ptr<VeskoIncomingTransferDelegate> delegate, std::shared_ptr<DispatchQueue> queue,
                        VeskoIncomingTransferSettings settings);
  virtual ~VeskoIncomingTransfer();
  VeskoIncomingTransfer(const VeskoIncomingTransfer&) = delete;
  VeskoIncomingTransfer& operator=(const VeskoIncomingTransfer&) = delete;

  Counter<std::uint64_t> elementCount;           ///< elements announced; 0 before the metadata has arrived
  Counter<std::uint64_t> totalSize;              ///< bytes announced by the sender; passed on, never relied on
  Counter<std::uint64_t> byteFinished;           ///< bytes of all completed elements
  Counter<std::uint64_t> currentElementSize;     ///< bytes of the current body; 0 for a folder
  Counter<std::uint64_t> currentElementPlusOne;  ///< number of the current element, counted from 1; 0 before the first
  Counter<std::uint64_t> currentSize;            ///< bytes of the current body in completed reads
  Counter<std::uint64_t> partialSize;            ///< bytes of the current body in the read that is not complete yet
  Counter<std::uint64_t> lastReportedPartialSize;  ///< `partialSize` when progress was last reported because of it
  Counter<std::uint64_t> queuedSize;               ///< bytes of the current body for which reads were issued

  /// The connection; none once the transfer is over, which may be before its outcome. This and the following up to
  /// `delegate`: on the transfer's queue only.
  [[nodiscard]] const std::shared_ptr<GCDAsyncSocket>& socket() const noexcept { return socket_; }
  [[nodiscard]] const std::string& basePath() const noexcept { return basePath_; }  ///< the folder the items end up in
  [[nodiscard]] const std::string& currentBasePath() const noexcept { return currentBasePath_; }
  [[nodiscard]] const std::string& currentNameBuffer() const noexcept { return currentNameBuffer_; }
  [[nodiscard]] std::string currentName() const { return currentName_.value_or(""); }
  [[nodiscard]] std::string currentPath() const { return currentPath_.value_or(""); }
  [[nodiscard]] const std::shared_ptr<FileHandle>& currentFile() const noexcept { return currentFile_; }
  [[nodiscard]] const std::optional<std::string>& buffer() const noexcept { return buffer_; }  ///< text under way
  [[nodiscard]] const std::shared_ptr<VeskoIncomingTransferDelegate>& delegate() const noexcept { return delegate_; }

  /// These never change; any thread.
  [[nodiscard]] const std::string& key() const noexcept { return key_; }
  [[nodiscard]] std::chrono::system_clock::time_point startTime() const noexcept { return startTime_; }
  [[nodiscard]] const std::string& remoteAddress() const noexcept { return remoteAddress_; }  ///< of the sender

  /// For the host: the sender, and what has been received from it. The transfer neither reads nor fills these. One
  /// thread at a time.
  [[nodiscard]] std::shared_ptr<VeskoPeer>& peer() noexcept { return peer_; }
  [[nodiscard]] std::vector<std::string>& receivedNames() noexcept { return receivedNames_; }
  [[nodiscard]] std::vector<std::string>& receivedPaths() noexcept { return receivedPaths_; }

  /// `length` random letters and digits, for the name of the storage folder. Requires: `length` at least 1.
  [[nodiscard]] virtual std::string generateRandomStringWithLength(std::int64_t length) const;

  /// Goes on to the next element, or settles when all announced ones are complete.
  virtual void doNextFile();

  /// Issues reads for the current body, or completes the element when all of its body has arrived.
  virtual void doNextChunk();

  /// Ends the transfer as a failure would, with the outcome "cancelled", unless it has already ended. Any thread;
  /// returns before that has happened.
  void cancel();

  /// The answer to `VeskoIncomingTransferGuard::incomingTransferAwaitsDecision`. `proceed` lets the transfer go on.
  /// `maximumSize`: bytes of all bodies, inclusive; it can lower the bound of the settings, not raise it. `folder`:
  /// where the items go; empty: where the settings say. `refuse` resets the connection; the outcome is "refused". Any
  /// thread. Without effect when no decision is awaited.
  ///
  /// A start of the service removes leftovers of killed processes in `VeskoServer::downloadsFolder` only, so not in
  /// another `folder`.
  void proceed(std::uint64_t maximumSize = VeskoIncomingTransferSettings::unlimited, std::string folder = {});
  void refuse();

  /// True from the outcome on. Any thread.
  [[nodiscard]] bool hasEnded() const noexcept { return ended_; }

  /// Called by the transfer's socket, on the transfer's queue. Not for hosts.
  void socketDidReadData(GCDAsyncSocket& socket, const Data& data, std::int64_t tag);
  void socketDidReadPartialDataOfLength(GCDAsyncSocket& socket, std::uint64_t length, std::int64_t tag);
  [[nodiscard]] double socketShouldTimeoutReadWithTag(GCDAsyncSocket& socket, std::int64_t tag, double elapsed,
                                                      std::uint64_t bytesDone);
  void socketDidDisconnect(GCDAsyncSocket& socket, const SocketError& error);

 private:
  friend class IncomingTransferRoom;
  class SocketEvents;

  /// The guard's decision: not asked for yet, asked for, or given.
  enum class Decision : std::uint8_t { open, awaited, made };

  /// The second half of the construction, for which a `std::shared_ptr` must own the object: chooses the storage
  /// folder, calls `incomingTransferDidStart` and issues the first read.
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
  std::shared_ptr<IncomingTransferRoom> room_;  // none for a transfer that was made without a service
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
  std::shared_ptr<FileHandle> droppedBody_;  // /dev/null, for the body of an element that cannot be stored
  std::optional<std::string> buffer_;        // the text being received
  bool isFolder_ = false;                    // the current element is one
  Decision decision_ = Decision::open;
  std::vector<VeskoSkippedElement> dropped_;
  std::size_t droppedCount_ = 0;
  std::uint64_t lastActivity_ = 0;  // sequence number of the last useful data; 0 before the first
  std::chrono::steady_clock::time_point lastPartialRead_;  // when bytes of a body last arrived
  bool isOver_ = false;                                    // nothing more is received; the outcome may be yet to come
  std::atomic<bool> ended_{false};
};

}  // namespace vesko
