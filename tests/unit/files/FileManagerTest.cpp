#include "Platform/files/FileManager.h"

#include <gtest/gtest.h>

#include <vector>

#include "Platform/text/DateFormatter.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TimeZone.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;

TEST(DateFormatterTest, WritesTheUsersTimeByPattern) {
  using std::chrono::minutes;
  const auto text = [](const char* zoneName, std::chrono::seconds time, const char* pattern) {
    const TimeZone zone(zoneName);
    constexpr std::chrono::sys_days day = std::chrono::year{2026} / 11 / 16;
    return DateFormatter(pattern).stringFromDate(std::chrono::system_clock::time_point(day) + time);
  };
  EXPECT_EQ(text("UTC0", minutes(5), "hh-mm"), "12-05");
  EXPECT_EQ(text("UTC0", minutes(12 * 60 + 5), "hh-mm"), "12-05");
  EXPECT_EQ(text("UTC0", std::chrono::seconds(50'707), "d.M. H:m:s, yyyyy"), "16.11. 14:5:7, 02026");
  EXPECT_EQ(text("JST-9", minutes(16 * 60), "dd HH"), "17 01");
  EXPECT_EQ(text("EST5", minutes(4 * 60), "dd hh"), "15 11");
}

TEST(FileManagerTest, FindsAndMakesTheDownloadsFolder) {
  const TemporaryFolder folder;
  const auto home = folder.makeFolder("home");
  const auto config = folder.makeFolder("config");
  std::vector<std::pair<std::string, std::string>> cases = {
      {" XDG_DOWNLOAD_DIR = \"$HOME/Gel\u00e4nde/\" # here\n", home + "/Gel\u00e4nde"},
      {"XDG_DOWNLOAD_DIR=\"" + folder.path("far away") + "\"\n", folder.path("far away")},
      {"XDG_DOWNLOAD_DIR=\"$HOME/a \\\"b\\\" \\$c \\\\\"\n", home + "/a \"b\" $c \\"},
      {"XDG_DOWNLOAD_DIR=\"$HOME/First\"\nXDG_DOWNLOAD_DIR=\"$HOME/Last\"", home + "/Last"},
  };
  for (const char* none :
       {"", "# XDG_DOWNLOAD_DIR=\"$HOME/Comment\"\nXDG_MUSIC_DIR=\"$HOME/Music\"\n", "XDG_DOWNLOAD_DIR=\"$HOME/\"\n",
        "XDG_DOWNLOAD_DIR=\"relative\"\n", "XDG_DOWNLOAD_DIR=\"$HOMEwork\"\n", "XDG_DOWNLOAD_DIR=\"$HOME/open\n",
        "XDG_DOWNLOAD_DIR=$HOME/bare\nXDG_DOWNLOAD_DIRECTORY=\"/tmp\"\n"}) {
    cases.emplace_back(none, home + "/Downloads");
  }
  std::error_code error;
  for (const auto& [file, downloads] : cases) {
    folder.write("config/user-dirs.dirs", file);
    EXPECT_EQ(FileManager::downloadsDirectory(home + "/", config, error), downloads) << file;
    EXPECT_TRUE(!error && fs::is_directory(downloads)) << file;
  }
  folder.write("home/.config/user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"$HOME/Default\"\n");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "", error), home + "/Default");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "config", error), home + "/Default");
  fs::remove(home + "/Default");
  folder.write("home/Default", "");
  EXPECT_EQ(FileManager::downloadsDirectory(home, "", error), "");
  EXPECT_EQ(error, std::errc::not_a_directory);
}

}  // namespace
}  // namespace vesko
