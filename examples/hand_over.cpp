// Lists the machines and receives into the downloads folder. Sends the paths of the command line to each machine whose
// address is typed.
#include <iostream>

#include "VeskoKit/VeskoKit.h"

using namespace vesko;

class Observer final : public VeskoPeerDiscoveryDelegate,
                       public VeskoIncomingTransferDelegate,
                       public VeskoTransferDelegate,
                       public VeskoTransferOutcomeDelegate {
 public:
  void peerDidAppear(const std::string& key, const std::shared_ptr<VeskoPeer>& peer) override {
    std::cout << key << " is " << Log::escaped(peer->systemSignature()) << std::endl;
  }
  void incomingTransferDidProgress(VeskoIncomingTransfer& transfer, std::uint64_t /*elementCount*/,
                                   std::uint64_t /*finishedElements*/, std::uint64_t totalSize,
                                   std::uint64_t finishedBytes, const std::optional<std::string>& /*currentName*/,
                                   const std::optional<std::string>& /*currentPath*/) override {
    std::cout << finishedBytes << " of " << totalSize << " bytes from " << transfer.remoteAddress() << std::endl;
  }
  void incomingTransferDidSaveItems(VeskoIncomingTransfer& /*transfer*/, const std::string& path) override {
    std::cout << "received " << Log::escaped(path) << std::endl;
  }
  void transferDidProgress(VeskoTransfer& transfer, std::int64_t /*elementCount*/, std::int64_t /*finishedElements*/,
                           std::uint64_t totalSize, std::uint64_t finishedBytes) override {
    std::cout << finishedBytes << " of " << totalSize << " bytes to " << transfer.peer()->ip() << std::endl;
  }
  void transferDidEnd(VeskoTransfer& /*transfer*/, const VeskoTransferOutcome& outcome) override {
    std::cout << Log::escaped(outcome.description()) << std::endl;
  }
};

int main(int argc, char** argv) {
  const std::vector<std::string> paths(argv + 1, argv + argc);
  Log::setSink(nullptr);  // one line an event, on standard output until a program takes or ends it
  const auto observer = std::make_shared<Observer>();
  const auto server = std::make_shared<VeskoServer>();
  server->setDelegate(observer);          // hears of the machines that come and go
  server->setIncomingDelegate(observer);  // hears of what arrives
  server->startServer();                  // hears others and accepts transfers from now on
  server->sayHello();                     // and is found by them

  std::string address;
  while (std::getline(std::cin, address)) {
    const auto peer = server->peerWithKey(address);
    if (!peer) continue;
    const auto transfer =
        std::make_shared<VeskoTransfer>(VeskoTransfer::itemsForPaths(paths), peer, DispatchQueue::serial("sending"));
    transfer->setDelegate(observer);
    transfer->setOutcomeDelegate(observer);  // hears how it ended, exactly once
    server->startTransfer(transfer);
  }
  server->sayGoodbye();
}
