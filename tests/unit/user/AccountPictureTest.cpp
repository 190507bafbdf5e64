#include "Platform/user/AccountPicture.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "Platform/user/NSImage.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Namespaces.h"
#include "tests/support/Png.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

using namespace std::string_literals;

const std::string red = Png::ofColor("\xff\0\0"s);
const std::string green = Png::ofColor("\0\xff\0"s);

std::optional<std::string> encoded(const std::string& png) { return NSImage::decode(png)->pngRepresentation(); }

TEST(AccountPicture, TakesTheFirstFileThatIsAPicture) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  folder.write("large", red);
  std::filesystem::resize_file(folder.path("large"), (16U << 20) + 1);
  const std::vector<std::string> paths = {folder.path("missing"),
                                          folder.makeFolder("folder"),
                                          folder.path("pipe"),
                                          "/dev/zero",
                                          folder.write("text", "no picture"),
                                          folder.write("empty", ""),
                                          folder.path("large"),
                                          folder.path("first"),
                                          folder.path("second")};
  AccountPicture picture([&] { return paths; });
  EXPECT_EQ(picture.png(), std::nullopt);
  folder.write("second", red);
  EXPECT_EQ(picture.png(), encoded(red));
  folder.write("first", green);
  EXPECT_EQ(picture.png(), encoded(green));
  std::filesystem::remove(folder.path("first"));
  EXPECT_EQ(picture.png(), encoded(red));
  std::filesystem::resize_file(folder.path("large"), 16U << 20);
  EXPECT_EQ(picture.png(), encoded(red));
  folder.write("text", green);
  EXPECT_EQ(picture.png(), encoded(green));
}

TEST(AccountPicture, DecodesAFileAgainOnlyWhenItChanged) {
  const TemporaryFolder folder;
  const std::string path = folder.write("picture", red);
  const auto time = std::filesystem::last_write_time(path);
  const auto writeAt = [&](const std::string& contents, std::filesystem::file_time_type when) {
    folder.write("picture", contents);
    std::filesystem::last_write_time(path, when);
  };
  std::vector<std::string> paths;
  AccountPicture picture([&] { return paths; });
  EXPECT_EQ(picture.png(), std::nullopt);
  paths = {path};
  EXPECT_EQ(picture.png(), encoded(red));
  writeAt(green, time);
  EXPECT_EQ(picture.png(), encoded(red));
  writeAt(green, time + std::chrono::nanoseconds(1));
  EXPECT_EQ(picture.png(), encoded(green));
  const std::string broken(red.size(), 'x');
  writeAt(broken, time);
  EXPECT_EQ(picture.png(), std::nullopt);
  writeAt(red, time);
  EXPECT_EQ(picture.png(), std::nullopt);
  writeAt(red + "longer", time);
  EXPECT_EQ(picture.png(), encoded(red));
  // Another file in its place, although of the same time and length.
  folder.write("other", green + "longer");
  std::filesystem::last_write_time(folder.path("other"), time);
  std::filesystem::rename(folder.path("other"), path);
  EXPECT_EQ(picture.png(), encoded(green));
}

/// Puts `folder` in the place of the folders of accounts and of their pictures, for this process only.
[[nodiscard]] bool replaceSystemFolders(const TemporaryFolder& folder) {
  return enterOwnMounts() && replaceFolder("/etc", folder.path()) && replaceFolder("/var/lib", folder.path());
}

void expectPathsOfLogins(const TemporaryFolder& folder) {
  using Paths = std::vector<std::string>;
  const auto setLogin = [&](const std::string& login) {
    folder.write("passwd", login + ":x:" + std::to_string(::getuid()) + ":0::/home/a/:/bin/sh\n");
  };
  const std::string icon = "/var/lib/AccountsService/icons/ada";
  ::unsetenv("HOME");
  EXPECT_EQ(accountPicturePaths(), Paths{});
  setLogin("ada");
  EXPECT_EQ(accountPicturePaths(), (Paths{icon, "/home/a/.face", "/home/a/.face.icon"}));
  folder.write("AccountsService/users/ada",
               "[Other]\nIcon=/no\n[User]\n#Icon=/no\nIconic=/no\n Icon = /my pic.png \r\n");
  ::setenv("HOME", "/h", 1);
  EXPECT_EQ(accountPicturePaths(), (Paths{"/my pic.png", icon, "/h/.face", "/h/.face.icon"}));
  folder.write("AccountsService/users/ada", "[User]\nIcon=relative.png\n[Other]\nIcon=/no\n");
  ::setenv("HOME", "relative", 1);
  EXPECT_EQ(accountPicturePaths(), (Paths{icon, "/home/a/.face", "/home/a/.face.icon"}));
  for (const std::string login : {"..", "../users/ada", "/etc"}) {
    setLogin(login);
    EXPECT_EQ(accountPicturePaths(), (Paths{"/home/a/.face", "/home/a/.face.icon"})) << login;
  }
}

TEST(AccountPicture, LooksWhereTheSystemKeepsPictures) {
  const TemporaryFolder folder;
  if (!passesInChild([&] { ::_exit(replaceSystemFolders(folder) ? 0 : 1); })) {
    GTEST_SKIP() << "namespaces of one's own, or mounting in them, are not permitted here";
  }
  EXPECT_TRUE(passesInChild([&] {
    ASSERT_TRUE(replaceSystemFolders(folder));
    expectPathsOfLogins(folder);
  }));
}

}  // namespace
}  // namespace vesko
