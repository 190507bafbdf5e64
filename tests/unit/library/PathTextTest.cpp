#include "VeskoKit/PathText.h"

#include <gtest/gtest.h>

namespace vesko {
namespace {

TEST(PathText, AppendsComponents) {
  EXPECT_EQ(stringByAppendingPathComponent("", "Photos"), "Photos");
  EXPECT_EQ(stringByAppendingPathComponent("Photos", "2019"), "Photos/2019");
  EXPECT_EQ(stringByAppendingPathComponent("/tmp/", "/a/"), "/tmp/a");
  EXPECT_EQ(stringByAppendingPathComponent("//", "//a/b//"), "/a/b");
  EXPECT_EQ(stringByAppendingPathComponent("a/", "/"), "a");
  EXPECT_EQ(stringByAppendingPathComponent("", "/"), "/");
  EXPECT_EQ(fromPathComponents({"usr", "local", "bin"}), "usr/local/bin");
  EXPECT_EQ(fromPathComponents({"/", "usr", "bin"}), "/usr/bin");
}

TEST(PathText, TakesPathsApart) {
  const struct {
    const char *path, *parent, *last, *withoutExtension, *extension;
  } cases[] = {
      {"/a/b/c.txt", "/a/b", "c.txt", "/a/b/c", "txt"},
      {"backup.tar.gz", "", "backup.tar.gz", "backup.tar", "gz"},
      {".bashrc", "", ".bashrc", ".bashrc", ""},
      {"/a/.bashrc.old", "/a", ".bashrc.old", "/a/.bashrc", "old"},
      {"/photos.d/x.d//", "/photos.d", "x.d", "/photos.d/x", "d"},
      {"a//b", "a", "b", "a//b", ""},
      {"trailing.", "", "trailing.", "trailing.", ""},
      {"..", "", "..", "..", ""},
      {"a/", "", "a", "a", ""},
      {"/", "/", "/", "/", ""},
      {"", "", "", "", ""},
  };
  for (const auto& [path, parent, last, withoutExtension, extension] : cases) {
    SCOPED_TRACE(path);
    EXPECT_EQ(stringByDeletingLastPathComponent(path), parent);
    EXPECT_EQ(lastPathComponent(path), last);
    EXPECT_EQ(stringByDeletingPathExtension(path), withoutExtension);
    EXPECT_EQ(pathExtension(path), extension);
  }
}

TEST(PathText, SanitizedStringDropsUnsafeCharacters) {
  EXPECT_EQ(sanitizedString("a/b\\c:d*e<f>g?h%i|j"), "abcdefghij");
  EXPECT_EQ(sanitizedString(" M\u00fcller's \"PC\" .. "), " M\u00fcller's \"PC\" .. ");
}

}  // namespace
}  // namespace vesko
