#include "Platform/user/AccountPicture.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

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
  const std::string large = folder.write("large", red);
  std::filesystem::resize_file(large, (16U << 20) + 1);
  std::vector<std::string> paths;
  AccountPicture picture([&] { return paths; });
  EXPECT_EQ(picture.png(), std::nullopt);
  folder.write("text", "no picture");
  folder.write("empty", "");
  paths = {"/dev/zero"};
  for (const auto* name : {"missing", ".", "pipe", "text", "empty", "large"}) paths.push_back(folder.path(name));
  EXPECT_EQ(picture.png(), std::nullopt);
  paths.push_back(folder.write("last", green));
  EXPECT_EQ(picture.png(), encoded(green));
  std::filesystem::resize_file(large, 16U << 20);
  EXPECT_EQ(picture.png(), encoded(red));
}

TEST(AccountPicture, DecodesAFileAgainOnlyWhenItChanged) {
  const TemporaryFolder folder;
  const std::string path = folder.write("picture", red);
  const auto time = std::filesystem::last_write_time(path);
  AccountPicture picture([&] { return std::vector{path}; });
  EXPECT_EQ(picture.png(), encoded(red));
  const auto later = time + std::chrono::nanoseconds(1);
  const struct {
    std::string contents;
    std::filesystem::file_time_type time;
    std::optional<std::string> png;
  } cases[] = {{green, time, encoded(red)},
               {green, later, encoded(green)},
               {std::string(red.size(), 'x'), time, std::nullopt},
               {red, time, std::nullopt},
               {red + "longer", time, encoded(red)}};
  for (const auto& one : cases) {
    folder.write("picture", one.contents);
    std::filesystem::last_write_time(path, one.time);
    EXPECT_EQ(picture.png(), one.png);
  }
  const std::string other = folder.write("other", green + "longer");
  std::filesystem::last_write_time(other, time);
  std::filesystem::rename(other, path);
  EXPECT_EQ(picture.png(), encoded(green)) << "another file, although of the same time and length";
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
  expectToPassPrepared([&] { return replaceSystemFolders(folder); }, [&] { expectPathsOfLogins(folder); });
}

}  // namespace
}  // namespace vesko
