#include "VeskoKit/TransferFailure.h"

#include <cerrno>
#include <utility>

#include "VeskoKit/TransferLimit.h"
#include "VeskoKit/TransferStream.h"

namespace vesko::TransferFailure {

namespace {

using Operation = SocketError::Operation;

VeskoFailureReason reasonOfConnection(const SocketError& error) {
  if (error.operation == Operation::connect) {
    return error.code == std::errc::connection_refused ? VeskoFailureReason::connectionRefused
                                                       : VeskoFailureReason::unreachable;
  }
  if (error.code == SocketErrc::unconfirmed) return VeskoFailureReason::unconfirmed;
  return error.code == std::errc::timed_out ? VeskoFailureReason::timedOut : VeskoFailureReason::connectionLost;
}

std::string nameOfOperation(Operation operation) {
  switch (operation) {
    case Operation::connect:
      return "connecting";
    case Operation::read:
      return "receiving";
    case Operation::source:
      return "reading the file";
    case Operation::destination:
      return "storing";
    default:
      return "sending";
  }
}

}  // namespace

VeskoTransferOutcome make(VeskoFailureReason reason, std::string operation, std::error_code error,
                          std::string element) {
  VeskoTransferOutcome outcome;
  outcome.kind = VeskoTransferOutcome::Kind::failed;
  outcome.reason = reason;
  outcome.operation = std::move(operation);
  outcome.error = error;
  outcome.element = std::move(element);
  return outcome;
}

VeskoTransferOutcome fromSocket(const SocketError& error, std::string element) {
  VeskoFailureReason reason = reasonOfConnection(error);
  if (error.operation == Operation::source) reason = reasonOfSource(error.code);
  if (error.operation == Operation::destination) reason = reasonOfStorage(error.code);
  if (reason == VeskoFailureReason::unconfirmed) return make(reason, {}, error.code, std::move(element));
  return make(reason, nameOfOperation(error.operation), error.code, std::move(element));
}

VeskoTransferOutcome cancelled() {
  VeskoTransferOutcome outcome;
  outcome.kind = VeskoTransferOutcome::Kind::cancelled;
  outcome.reason = VeskoFailureReason::cancelled;
  return outcome;
}

NameFault faultOfName(std::string_view name) noexcept {
  using TransferStream::NameVerdict;
  switch (TransferStream::checkName(name)) {
    case NameVerdict::unsafe:
      return {VeskoFailureReason::unsafeName, {}};
    case NameVerdict::invalid:
      return {VeskoFailureReason::invalidText, {}};
    case NameVerdict::tooLong:
      return {VeskoFailureReason::limit, TransferLimit::nameLength};
    case NameVerdict::tooDeep:
      return {VeskoFailureReason::limit, TransferLimit::nameDepth};
    case NameVerdict::good:
      break;
  }
  return {};
}

/// Errors that show that the path leads to something else than when it was listed, or to less.
VeskoFailureReason reasonOfSource(std::error_code error) {
  const bool changed = !error || error == SocketErrc::sourceEnded || error == std::errc::no_such_file_or_directory ||
                       error == std::errc::not_a_directory || error == std::errc::invalid_argument ||
                       error == std::errc::is_a_directory;
  return changed ? VeskoFailureReason::sourceChanged : VeskoFailureReason::notReadable;
}

VeskoFailureReason reasonOfStorage(std::error_code error) {
  const bool full = error == std::errc::no_space_on_device || error == std::errc::file_too_large ||
                    error == std::error_code(EDQUOT, std::system_category());
  return full ? VeskoFailureReason::noSpace : VeskoFailureReason::storage;
}

}  // namespace vesko::TransferFailure
