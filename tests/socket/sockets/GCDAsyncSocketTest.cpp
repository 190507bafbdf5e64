#include "Platform/sockets/GCDAsyncSocket.h"

#include <fcntl.h>

#include <random>
#include <thread>

#include "Platform/files/FileHandle.h"
#include "tests/socket/sockets/SocketFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

using namespace std::string_literals;

constexpr std::uint64_t mebibyte = 1024 * 1024;

std::string randomBytes(std::size_t length) {
  std::string bytes(length, '\0');
  std::ranges::generate(bytes,
                        [generator = std::minstd_rand(4644)]() mutable { return static_cast<char>(generator()); });
  return bytes;
}

std::shared_ptr<FileHandle> handleForWriting(const std::string& path) {
  return std::make_shared<FileHandle>(FileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)));
}

TEST_F(SocketTest, ReadsAreExactAndInOrderHoweverTheStreamIsCut) {
  const std::string stream = "0123456789abcdefA\0bcdefgh!"s + std::string(300'000, 'x') + "end";
  const std::vector<std::uint64_t> lengths = {16, 1, 1, 8, 300'000, 3};
  for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, std::string::npos}) {
    SCOPED_TRACE(piece);
    RawConnection peer = connect();
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < lengths.size(); ++i) {
      socket_->readDataToLength(lengths[i], -1, static_cast<std::int64_t>(i));
      expected.push_back("read " + std::to_string(i) + " " + std::to_string(lengths[i]));
    }
    ASSERT_TRUE(peer.send(std::string_view(stream).substr(0, 26), piece));
    ASSERT_TRUE(peer.send(std::string_view(stream).substr(26), piece == 1 ? 1000 : piece));
    ASSERT_TRUE(events_->waitFor("read 5"));
    EXPECT_EQ(events_->startingWith("read "), expected);
    EXPECT_EQ(events_->received, stream);
    EXPECT_LT(events_->sumOf("reading 4"), 300'000U) << "the last bytes are told by the completion";
    EXPECT_EQ(events_->count("reading 1 "), 0U);
  }
}

TEST_F(SocketTest, ReadsGoIntoFiles) {
  const TemporaryFolder folder;
  const std::string large = randomBytes(3 * mebibyte);
  RawConnection peer = connect();
  {
    const auto handle = handleForWriting(folder.path("large"));
    socket_->readDataToLength(4, -1, 1);
    socket_->readDataToLength(2 * mebibyte, handle, -1, 2);
    socket_->readDataToLength(mebibyte, handle, -1, 3);
  }
  std::string stream = "head" + large;
  for (int number = 10'000; number < 10'200; ++number) {
    const std::string name = std::to_string(number);
    socket_->readDataToLength(1, -1, 4);
    socket_->readDataToLength(5, handleForWriting(folder.path(name)), -1, 5);
    stream += ";" + name;
  }
  ASSERT_TRUE(peer.send(stream));
  ASSERT_TRUE(events_->waitFor("read 5", 200));
  EXPECT_EQ(events_->received, "head" + std::string(200, ';'));
  for (const std::string& name : folder.entries()) EXPECT_TRUE(folder.read(name) == (name == "large" ? large : name));
  EXPECT_TRUE(events_->sumOf("reading 2") > 0 && events_->sumOf("reading 2") < 2 * mebibyte);

  peer = connect();
  const auto handle = std::make_shared<FileHandle>(FileDescriptor(::open("/dev/full", O_WRONLY | O_CLOEXEC)));
  socket_->readDataToLength(10, handle, -1, 1);
  ASSERT_TRUE(peer.send("0123456789"));
  EXPECT_TRUE(endsWith("destination: No space left on device"));
}

TEST_F(SocketTest, ReadsToAByteTakeWhatIsThereAndNoMore) {
  RawConnection peer = connect();
  ASSERT_TRUE(peer.send("ab\0cdef\0\0"s));
  std::size_t count = 0;
  std::string expected;
  for (const auto& [maximumLength, part] :
       {std::pair(10U, "ab\0"s), {1U, "c"s}, {2U, "de"s}, {2U, "f\0"s}, {10U, "\0"s}, {10U, "g"s}}) {
    if (part == "g") peer.send("g");  // what has no end yet is not waited for
    socket_->readDataToByte('\0', maximumLength, 10, 1);
    ASSERT_TRUE(events_->waitFor("read 1", ++count));
    EXPECT_EQ(events_->received, expected += part);
  }
}

TEST_F(SocketTest, WritesArriveByteForByte) {
  const TemporaryFolder folder;
  const std::string large = randomBytes(30 * mebibyte + 5);
  std::error_code error;
  const auto file = FileHandle::forReadingAtPath(folder.write("large", large), error);
  ASSERT_FALSE(error);
  std::string expected;
  RawConnection peer = connect();
  std::int64_t tag = 0;
  const auto write = [&](Data data, std::string_view bytes) {
    socket_->writeData(std::move(data), -1, ++tag);
    expected += bytes;
  };
  write(Data("head"), "head");
  write(Data::stretchOfFile(file, 5, 30 * mebibyte), std::string_view(large).substr(5));
  for (int i = 0; i < 2000; ++i) write(Data(std::to_string(i)), std::to_string(i));
  write(Data::stretchOfFile(file, 1000, 500), std::string_view(large).substr(1000, 500));
  write(Data(std::string(mebibyte, 'm')), std::string(mebibyte, 'm'));
  write(Data("tail"), "tail");
  socket_->disconnectAfterWriting();
  EXPECT_TRUE(peer.receiveAll() == expected);
  EXPECT_FALSE(peer.error());
  peer.close();
  EXPECT_TRUE(endsWith("none"));
  std::vector<std::string> order;
  for (std::int64_t i = 1; i <= tag; ++i) order.push_back("wrote " + std::to_string(i));
  EXPECT_EQ(events_->startingWith("wrote "), order);
  EXPECT_TRUE(events_->sumOf("writing 2") > 0 && events_->sumOf("writing 2") < 30 * mebibyte);
  EXPECT_EQ(events_->count("writing 1 "), 0U);
}

TEST_F(SocketTest, OperationsComeFromAnyThread) {
  RawConnection peer = connect();
  const auto onFourThreads = [](const auto& body) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back([&body, i] { body(i); });
  };
  onFourThreads([&](int i) {
    for (int round = 0; round < 250; ++round) {
      socket_->writeData(Data(std::string(64, static_cast<char>('a' + i))), 10, i);
      socket_->readDataToLength(3, 10, i);
    }
  });
  const std::string sent = peer.receive(1000 * 64);
  ASSERT_EQ(sent.size(), 1000U * 64U);
  for (std::size_t i = 0; i < sent.size(); i += 64) ASSERT_EQ(sent.substr(i, 64), std::string(64, sent[i]));
  ASSERT_TRUE(peer.send(std::string(3000, '.'), 100));
  EXPECT_TRUE(events_->waitFor("read", 1000));
  onFourThreads([&](int i) {
    if (i == 0) socket_->disconnectAfterWriting();
    if (i == 1) socket_->disconnectWithReset();
    socket_->writeData(Data("late"), 10, 9);
    socket_->disconnect();
  });
  EXPECT_TRUE(endsWith("none"));
}

}  // namespace
}  // namespace vesko
