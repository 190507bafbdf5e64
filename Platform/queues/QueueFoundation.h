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

/// Run by the threads behind all queues but those with one of their own. Made by the first call, which throws
/// `std::system_error` when the system has no thread or no descriptors left for that.
[[nodiscard]] const std::shared_ptr<boost::asio::io_context>& poolContext();

/// What the timers of a new context need opens descriptors: here, and not in the middle of a shortage of them. Throws
/// `std::system_error` when there are none left.
void openDescriptors(boost::asio::io_context& context);

/// A serial queue on a context whose threads are another's matter.
[[nodiscard]] std::shared_ptr<DispatchQueue> queueOn(std::shared_ptr<boost::asio::io_context> context,
                                                     std::string label, std::shared_ptr<Clock> clock);

/// What runs the handlers of a socket of Boost.Asio as tasks of `queue`. Requires: it is one made by `serial`,
/// `serialWithThread` or `queueOn`.
[[nodiscard]] boost::asio::any_io_executor executorOf(DispatchQueue& queue);

/// A source for a queue that has no threads of its own: waits on the pool and hands the handlers to `queue`.
/// None, with `error` set, when the system cannot watch the descriptor.
[[nodiscard]] std::unique_ptr<DispatchSource> poolSource(std::shared_ptr<DispatchQueue> queue, int descriptor,
                                                         std::error_code& error);

/// Blocks SIGPIPE and SIGXFSZ for the calling thread; error codes say all there is to say. `sendfile` raises the one on
/// a broken connection and, unlike `send`, takes no flag against that; storing beyond a limit of file sizes (`ulimit
/// -f`) raises the other.
void blockWriteSignals() noexcept;

}  // namespace vesko
