#include "Platform/sockets/LocalSocket.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "tests/socket/sockets/SocketFixture.h"
#include "tests/support/LocalPeer.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

/// What `openRaw` opens as another user, which for Linux is a matter of one thread.
FileDescriptor openAsAnotherUser(const std::string& path, Use use) {
  FileDescriptor descriptor;
  std::thread([&] {
    constexpr uid_t nobody = 65534;
    ASSERT_EQ(::syscall(SYS_setresuid, -1, nobody, -1), 0);
    descriptor = openRaw(path, use);
  }).join();
  return descriptor;
}

void setMode(const std::string& path, mode_t mode) { ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path; }

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

class LocalSocketTest : public QueueTest {
 protected:
  ~LocalSocketTest() override { waitForTasks(queue_); }

  [[nodiscard]] std::unique_ptr<LocalListener> listen(const std::string& path, std::error_code& error) {
    const auto accept = [this](std::shared_ptr<LocalConnection> connection) {
      accepted_ = std::move(connection);
      events_->add("accepted");
    };
    return LocalListener::listen(path, queue_, accept, error);
  }

  [[nodiscard]] std::unique_ptr<LocalListener> listen() {
    std::error_code error;
    auto listener = listen(path_, error);
    EXPECT_FALSE(error) << error.message();
    return listener;
  }

  void start(LocalConnection& connection, std::size_t lineLimit = LocalConnection::maximumLineLength) {
    connection.start(
        lineLimit, [events = events_](const std::string& line) { events->add("line " + line); },
        [events = events_] { events->add("end"); });
  }

  /// A raw connection, accepted but not started.
  [[nodiscard]] RawConnection connectRaw() {
    RawConnection raw(openRaw(path_, Use::connect));
    EXPECT_TRUE(events_->waitFor("accepted"));
    waitForTasks(queue_);
    events_->take();
    return raw;
  }

  const TemporaryFolder folder_;
  const std::string path_ = folder_.path("own/1.sock");
  const std::shared_ptr<EventList> events_ = std::make_shared<EventList>();
  std::shared_ptr<LocalConnection> accepted_;
};

TEST_F(LocalSocketTest, LinesArriveWholeHoweverTheyArePieced) {
  const auto listener = listen();
  const std::vector<std::string> expected{"line a", "line ", "line b\r", "line 12345678", "end"};
  for (const std::size_t pieceLength : {std::size_t{1}, std::size_t{3}, std::string::npos}) {
    RawConnection raw = connectRaw();
    start(*accepted_, 8);
    accepted_->send("x");
    ASSERT_TRUE(raw.send("a\n\nb\r\n12345678\nno line", pieceLength));
    EXPECT_EQ(raw.receive(2), "x\n");
    raw.close();
    ASSERT_TRUE(events_->waitFor("end"));
    waitForTasks(queue_);
    EXPECT_EQ(events_->take(), expected);
  }

  RawConnection tooLong = connectRaw();
  start(*accepted_, 8);
  ASSERT_TRUE(tooLong.send("123456789"));
  EXPECT_EQ(tooLong.receiveAll(), "");
  ASSERT_TRUE(events_->waitFor("end"));
  EXPECT_EQ(events_->take(), std::vector<std::string>{"end"});
}

TEST_F(LocalSocketTest, WhoHasSaidAllItWantedStillHearsTheAnswers) {
  const auto listener = listen();
  RawConnection raw = connectRaw();
  raw.send("?\n");
  raw.endSending();
  accepted_->start(
      10, [this](const std::string& line) { accepted_->send(line + "!"); }, [] {});
  EXPECT_EQ(raw.receiveAll(), "?!\n");
}

TEST_F(LocalSocketTest, OneThatDoesNotReadHoldsNobodyUpAndIsCutOff) {
  const auto listener = listen();
  RawConnection raw = connectRaw();
  start(*accepted_);
  const std::string line(1U << 20U, 'x');
  for (std::size_t sent = 0; sent <= LocalConnection::maximumLineLength + line.size(); sent += line.size()) {
    accepted_->send(line);
  }
  ASSERT_TRUE(events_->waitFor("end"));
  EXPECT_LT(raw.receiveAll().size(), LocalConnection::maximumLineLength);
  accepted_->send("nobody hears this");
}

TEST_F(LocalSocketTest, ClosesOnceEverythingIsSentButDoesNotWaitForEver) {
  const auto listener = listen();
  const std::string line(4U << 20U, 'x');
  for (const bool reads : {true, false}) {
    RawConnection raw = connectRaw();
    start(*accepted_);
    ASSERT_TRUE(raw.send("unfinished"));
    accepted_->send(line);
    accepted_->closeAfterSending();
    accepted_->send("too late");
    accepted_.reset();
    ASSERT_TRUE(clock_->waitForAlarm());
    if (!reads) clock_->advance(std::chrono::seconds(2));
    waitForTasks(queue_);
    const std::string received = raw.receiveAll();
    EXPECT_EQ(received == line + "\n", reads) << received.size();
    waitForTasks(queue_);
    EXPECT_EQ(events_->take(), std::vector<std::string>());
  }
}

TEST_F(LocalSocketTest, TellsNothingAfterItsClose) {
  const auto listener = listen();
  RawConnection raw = connectRaw();
  accepted_->start(
      10,
      [this](const std::string& line) {
        events_->add(line);
        accepted_->close();
      },
      [this] { events_->add("end"); });
  raw.send("1\n2\n");
  EXPECT_EQ(raw.receiveAll(), "");
  waitForTasks(queue_);
  EXPECT_EQ(events_->take(), std::vector<std::string>{"1"});
}

TEST_F(LocalSocketTest, BothSidesTalkAndAnyThreadLetsGo) {
  const auto listener = listen();
  for (int round = 0; round < 20; ++round) {
    std::error_code error;
    auto connection = LocalConnection::connect(path_, DispatchQueue::serial("client"), error);
    ASSERT_FALSE(error) << error.message();
    ASSERT_TRUE(events_->waitFor("accepted"));
    waitForTasks(queue_);
    start(*accepted_);
    const auto echoes = std::make_shared<EventList>();
    connection->start(
        10, [echoes](const std::string& line) { echoes->add(line); }, [] {});
    const auto sendAll = [](LocalConnection& from) {
      for (int i = 0; i < 500; ++i) from.send(std::to_string(i));
    };
    std::jthread other([&] { sendAll(*accepted_); });
    sendAll(*connection);
    ASSERT_TRUE(events_->waitFor("line 99") && echoes->waitFor("99"));
    connection.reset();
    other.join();
    ASSERT_TRUE(events_->waitFor("end"));
    EXPECT_EQ(events_->startingWith("line ")[99], "line 99");
    EXPECT_EQ(echoes->all()[99], "99");
    accepted_.reset();
    events_->take();
  }
}

TEST_F(LocalSocketTest, ListensOnlyInAFolderOfTheUsersAlone) {
  folder_.write("file", "");
  const std::string target = folder_.makeFolder("private");
  setMode(target, 0700);
  setMode(folder_.makeFolder("open"), 0701);
  setMode(folder_.makeFolder("readable"), 0740);
  ASSERT_EQ(::symlink(target.c_str(), folder_.path("link").c_str()), 0);
  const std::pair<std::string, std::errc> cases[] = {
      {"open/1.sock", std::errc::permission_denied},
      {"readable/1.sock", std::errc::permission_denied},
      {"link/1.sock", std::errc::permission_denied},
      {"file/1.sock", std::errc::permission_denied},
      {"missing/folder/1.sock", std::errc::no_such_file_or_directory},
      {"private/" + std::string(120, '1'), std::errc::filename_too_long},
  };
  for (const auto& [path, expected] : cases) {
    std::error_code error;
    EXPECT_EQ(listen(folder_.path(path), error), nullptr) << path;
    EXPECT_EQ(error, expected) << path << ": " << error.message();
  }
  EXPECT_EQ(folder_.entries("private"), std::vector<std::string>());

  const auto listener = listen();
  EXPECT_EQ(modeOf(folder_.path("own")), 0700U);
  EXPECT_EQ(modeOf(path_), 0600U);
}

TEST_F(LocalSocketTest, TakesThePlaceOfTheDeadAndNotOfTheLiving) {
  setMode(folder_.makeFolder("own"), 0700);
  { const auto dead = openRaw(path_, Use::listen); }
  { const auto deadBeforeItListened = openRaw(path_ + ".new", Use::listen); }
  auto first = listen();
  EXPECT_EQ(folder_.entries("own"), std::vector<std::string>{"1.sock"});
  std::error_code error;
  EXPECT_EQ(listen(path_, error), nullptr);
  EXPECT_EQ(error, std::errc::address_in_use);
  { const RawConnection stillThere = connectRaw(); }

  ASSERT_EQ(::unlink(path_.c_str()), 0);
  auto second = listen();
  first.reset();
  { const RawConnection stillThere = connectRaw(); }
  second.reset();
  EXPECT_EQ(folder_.entries("own"), std::vector<std::string>());
  EXPECT_EQ(LocalConnection::connect(path_, queue_, error), nullptr);
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
}

TEST_F(LocalSocketTest, KeepsOtherUsersOut) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can act as another user";
  const auto listener = listen();
  for (const auto& path : {folder_.path(), folder_.path("own"), path_}) setMode(path, 0777);
  EXPECT_EQ(RawConnection(openAsAnotherUser(path_, Use::connect)).receiveAll(), "");
  waitForTasks(queue_);
  EXPECT_EQ(events_->count("accepted"), 0U);

  const FileDescriptor trap = openAsAnotherUser(folder_.path("trap"), Use::listen);
  std::error_code error;
  EXPECT_EQ(LocalConnection::connect(folder_.path("trap"), queue_, error), nullptr);
  EXPECT_EQ(error, std::errc::permission_denied);
}

}  // namespace
}  // namespace vesko
