#include "Platform/user/Identity.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/Namespaces.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

TEST(IdentityTest, AssignedValues) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"", ""},
      {"NAME=two words", "two"},
      {"NAME=windows\r\n", "windows"},
      {"# NAME=comment\nXNAME=a\nNAMEX=b\nNAME =c\n", ""},
      {"NAME=first\nOTHER=x\n  NAME=last\n", "last"},
      {"NAME=first\nNAME=\n", ""},
      {R"(NAME="Ada's laptop")", "Ada's laptop"},
      {R"(NAME='the "best" \one')", R"(the "best" \one)"},
      {R"(NAME="a \"b\" \\ \$c \`d\` \e")", R"(a "b" \ $c `d` \e)"},
      {R"(NAME=a\ b\"c)", "a b\"c"},
      {R"(NAME=a"b c"'d e'f)", "ab cd ef"},
      {"NAME=\"never closed\nOTHER=\"", "never closed"},
      {"NAME=ends\\", "ends\\"},
      {"NAME=Zo\xC3\xAB\xFF\xC3", "Zo\xC3\xAB\xEF\xBF\xBD\xEF\xBF\xBD"},
  };
  for (const auto& [contents, value] : cases) EXPECT_EQ(Identity::assignedValue(contents, "NAME"), value) << contents;
}

/// Puts `folder` in the place of /etc, for this process only, and gives the machine a name of its own.
[[nodiscard]] bool replaceSystemFolder(const TemporaryFolder& folder, std::string_view hostName) {
  return enterOwnMounts(CLONE_NEWUTS) && replaceFolder("/etc", folder.path()) &&
         ::sethostname(hostName.data(), hostName.size()) == 0;
}

void expectWhatTheSystemTells(const TemporaryFolder& folder) {
  const std::string account = "ada:x:" + std::to_string(::getuid()) + ":0:";
  EXPECT_EQ(Identity::userName(), "");
  EXPECT_EQ(Identity::fullUserName(), "");
  EXPECT_EQ(Identity::computerName(), "host");
  folder.write("passwd", account + "Ada Lovelace,Room 1,,:/:/bin/sh\n");
  folder.write("machine-info", "ICON_NAME=computer\nPRETTY_HOSTNAME=\"Ada's laptop\"\n");
  EXPECT_EQ(Identity::userName(), "ada");
  EXPECT_EQ(Identity::fullUserName(), "Ada Lovelace");
  EXPECT_EQ(Identity::computerName(), "Ada's laptop");
  folder.write("passwd", account + "Zo\xEB " + std::string(5000, 'x') + ":/:/bin/sh\n");
  EXPECT_EQ(Identity::fullUserName(), "Zo\xEF\xBF\xBD " + std::string(5000, 'x'));
  folder.write("passwd", account + ",Room 1:/:/bin/sh\n");
  folder.write("machine-info", "PRETTY_HOSTNAME=\n");
  EXPECT_EQ(Identity::fullUserName(), "ada");
  EXPECT_EQ(Identity::computerName(), "host");
  EXPECT_EQ(::sethostname("", 0), 0);
  EXPECT_EQ(Identity::computerName(), "localhost");
}

TEST(IdentityTest, AsksTheSystem) {
  const TemporaryFolder folder;
  expectToPassPrepared([&] { return replaceSystemFolder(folder, "host"); }, [&] { expectWhatTheSystemTells(folder); });
}

}  // namespace
}  // namespace vesko
