#include "bench/reference/Network.h"

#include <netinet/in.h>
#include <sys/socket.h>

namespace vesko::reference {
namespace {

sockaddr_in loopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

Descriptor newSocket() { return {socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"}; }

}  // namespace

Descriptor connectTo(std::uint16_t port) {
  const sockaddr_in address = loopbackAddress(port);
  Descriptor result = newSocket();
  check(connect(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "connect");
  return result;
}

Descriptor acceptOne(std::uint16_t port) {
  const sockaddr_in address = loopbackAddress(port);
  const Descriptor listener = newSocket();
  const int yes = 1;
  check(setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes), "setsockopt");
  check(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind");
  check(listen(listener.get(), 1), "listen");
  return {accept(listener.get(), nullptr, nullptr), "accept"};
}

}  // namespace vesko::reference
