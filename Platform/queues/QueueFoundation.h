#pragma once

#include <memory>
#include <string>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/queues/DispatchSource.h"

namespace boost::asio {
class any_io_executor;
class io_context;
}  // namespace boost::asio

namespace vesko {

/// The Boost.Asio context of the threads that the queues share. Made by the first call, which throws
/// `std::system_error` when the system has no thread or no descriptors left.
[[nodiscard]] const std::shared_ptr<boost::asio::io_context>& poolContext();

/// Makes a new context open the descriptors that its timers need, now rather than in the middle of a shortage. Throws
/// `std::system_error` when there are none left.
void openDescriptors(boost::asio::io_context& context);

/// A serial queue on a context whose threads somebody else runs.
[[nodiscard]] std::shared_ptr<DispatchQueue> queueOn(std::shared_ptr<boost::asio::io_context> context,
                                                     std::string label, std::shared_ptr<Clock> clock);

/// The executor that runs the handlers of a Boost.Asio socket as tasks of `queue`. Requires: `queue` was made by
/// `serial`, `serialWithThread` or `queueOn`.
[[nodiscard]] boost::asio::any_io_executor executorOf(DispatchQueue& queue);

/// A source for a queue without threads of its own, such as the main queue: it waits on the shared threads and passes
/// the handlers to `queue`. None, with `error` set, when the system cannot watch the descriptor.
[[nodiscard]] std::unique_ptr<DispatchSource> poolSource(std::shared_ptr<DispatchQueue> queue, int descriptor,
                                                         std::error_code& error);

/// Blocks SIGPIPE and SIGXFSZ for the calling thread; the failed calls return error codes anyway. sendfile(2) raises
/// SIGPIPE on a broken connection and, unlike send(2), takes no flag against it. Writing beyond a limit of the file
/// size (`ulimit -f`) raises SIGXFSZ.
void blockWriteSignals() noexcept;

}  // namespace vesko
