#pragma once

#include <memory>

namespace boost::asio {
class io_context;
}  // namespace boost::asio

namespace vesko {

class DispatchQueue;
class SelectorEventLoop;

/// The Boost.Asio context of `loop`; for the sources of `Platform/` only. Lives as long as `loop`.
[[nodiscard]] boost::asio::io_context& contextOf(SelectorEventLoop& loop) noexcept;

/// The same as a serial queue.
[[nodiscard]] const std::shared_ptr<DispatchQueue>& queueOf(SelectorEventLoop& loop) noexcept;

}  // namespace vesko
