#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "file.h"
#include "fileTestInt.h"
#include "msg.h"

namespace {

class FilePath : public FileHost {};
class FilePathLatin1 : public FileHostLatin1 {};
class FilePathAscii : public FileHostAscii {};

TEST(FilePathText, FullPathsBeginAtTheRoot) {
  EXPECT_TRUE(File_IsFullPath("/"));
  EXPECT_TRUE(File_IsFullPath("/x/y"));
  EXPECT_TRUE(File_IsFullPath("//"));
  EXPECT_FALSE(File_IsFullPath("x"));
  EXPECT_FALSE(File_IsFullPath("./x"));
  EXPECT_FALSE(File_IsFullPath(""));
  EXPECT_FALSE(File_IsFullPath(nullptr));
}

TEST(FilePathText, SplitsBehindTheLastSlash) {
  const struct {
    const char *path, *directory, *pathName, *base;
  } rows[] = {
      {"", "", "", ""},
      {"x", "", "", "x"},
      {"/", "/", "", ""},
      {"/x", "/", "", "x"},
      {"//x", "//", "", "x"},
      {"/x/", "/x/", "/x", ""},
      {"x/y", "x/", "x", "y"},
      {"/a/b/c", "/a/b/", "/a/b", "c"},
      {"/a//b///c", "/a//b///", "/a//b", "c"},
      {"///", "///", "", ""},
      {"/a/..", "/a/", "/a", ".."},
  };
  for (const auto &row : rows) {
    char *volume = nullptr;
    char *directory = nullptr;
    char *base = nullptr;
    File_SplitName(row.path, &volume, &directory, &base);
    EXPECT_EQ(Take(volume), "") << row.path;
    EXPECT_EQ(Take(directory), row.directory) << row.path;
    EXPECT_EQ(Take(base), row.base) << row.path;
    File_GetPathName(row.path, &directory, &base);
    EXPECT_EQ(Take(directory), row.pathName) << row.path;
    EXPECT_EQ(Take(base), row.base) << row.path;
  }
}

TEST(FilePathText, SplitsIntoWhatIsWanted) {
  File_SplitName("/a/b", nullptr, nullptr, nullptr);
  File_GetPathName("/a/b", nullptr, nullptr);
  char *part = nullptr;
  File_SplitName("/a/b", nullptr, &part, nullptr);
  EXPECT_EQ(Take(part), "/a/");
  File_SplitName("/a/b", nullptr, nullptr, &part);
  EXPECT_EQ(Take(part), "b");
  File_GetPathName("/a/b", nullptr, &part);
  EXPECT_EQ(Take(part), "b");
}

TEST(FilePathText, JoinsWithOneSlash) {
  EXPECT_EQ(Take(File_PathJoin("/a", "b")), "/a/b");
  EXPECT_EQ(Take(File_PathJoin("/a/", "b")), "/a/b");
  EXPECT_EQ(Take(File_PathJoin("/", "b")), "/b");
  EXPECT_EQ(Take(File_PathJoin("", "b")), "/b");
  EXPECT_EQ(Take(File_PathJoin("/a", "")), "/a/");
  EXPECT_EQ(Take(File_PathJoin("/a", "/b")), "/a//b");
}

TEST(FilePathText, CollapsesRunsOfSlashes) {
  EXPECT_EQ(Take(File_StripFwdSlashes("//a///b/c//")), "/a/b/c/");
  EXPECT_EQ(Take(File_StripFwdSlashes("////")), "/");
  EXPECT_EQ(Take(File_StripFwdSlashes("a")), "a");
  EXPECT_EQ(Take(File_StripFwdSlashes("")), "");
}

TEST(FilePathText, StripsTrailingSlashesButTheRoots) {
  EXPECT_EQ(Take(File_StripSlashes("/a/b/")), "/a/b");
  EXPECT_EQ(Take(File_StripSlashes("/a/b///")), "/a/b");
  EXPECT_EQ(Take(File_StripSlashes("/a//b")), "/a//b");
  EXPECT_EQ(Take(File_StripSlashes("a/")), "a");
  EXPECT_EQ(Take(File_StripSlashes("/")), "/");
  EXPECT_EQ(Take(File_StripSlashes("///")), "/");
  EXPECT_EQ(Take(File_StripSlashes("")), "");
}

TEST(FilePathText, ReplacesExtensions) {
  EXPECT_EQ(Take(File_ReplaceExtension("/x/y.tar.gz", ".zip", 0)), "/x/y.tar.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("/x/y", ".zip", 0)), "/x/y.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("/x.d/y", ".zip", 0)), "/x.d/y.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("y.", ".zip", 0)), "y.zip");
  EXPECT_EQ(Take(File_ReplaceExtension(".y", ".zip", 0)), ".zip");
  EXPECT_EQ(Take(File_ReplaceExtension("/x/", ".zip", 0)), "/x/.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("", ".", 0)), ".");
}

TEST(FilePathText, ReplacesOnlyTheExtensionsThatAreListed) {
  EXPECT_EQ(Take(File_ReplaceExtension("/x/y.gz", ".zip", 2, ".bz2", ".gz")), "/x/y.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("/x/y.bz2", ".zip", 2, ".bz2", ".gz")), "/x/y.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("/x/y.tar", ".zip", 2, ".bz2", ".gz")), "/x/y.tar.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("/x/y.tar.gz", ".zip", 1, ".tar.gz")), "/x/y.tar.gz.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("/x/y.GZ", ".zip", 1, ".gz")), "/x/y.GZ.zip");
  EXPECT_EQ(Take(File_ReplaceExtension("/x/y", ".zip", 1, ".gz")), "/x/y.zip");
}

TEST(FilePathText, AnExtensionWithoutADotStopsTheProgram) {
  const char *asserts = "ASSERT lib/file/filePath.cc:";
  EXPECT_EXIT(File_ReplaceExtension("/x/y", "zip", 0), testing::ExitedWithCode(255), asserts);
  EXPECT_EXIT(File_ReplaceExtension("/x/y", "", 0), testing::ExitedWithCode(255), asserts);
  EXPECT_EXIT(File_ReplaceExtension("/x/y.gz", ".zip", 2, ".gz", "bz2"), testing::ExitedWithCode(255),
              asserts);
  EXPECT_EXIT(File_ReplaceExtension("/x/y", ".zip", 1, "gz"), testing::ExitedWithCode(255), asserts);
}

TEST(FilePathText, ANullTextStopsTheProgram) {
  const char *asserts = "ASSERT lib/file/filePath.cc:";
  EXPECT_EXIT(File_PathJoin(nullptr, "b"), testing::ExitedWithCode(255), asserts);
  EXPECT_EXIT(File_SplitName(nullptr, nullptr, nullptr, nullptr), testing::ExitedWithCode(255), asserts);
  EXPECT_EXIT(File_StripSlashes(nullptr), testing::ExitedWithCode(255), asserts);
}

TEST(FilePathText, PrependsAnElementThatStandsOnceAndFirst) {
  EXPECT_EQ(Take(File_PrependToPath("a;b;c", "b")), "b;a;c");
  EXPECT_EQ(Take(File_PrependToPath("a;b", "c")), "c;a;b");
  EXPECT_EQ(Take(File_PrependToPath("b;c", "b")), "b;c");
  EXPECT_EQ(Take(File_PrependToPath("a;b", "b")), "b;a");
  EXPECT_EQ(Take(File_PrependToPath("b", "b")), "b");
  EXPECT_EQ(Take(File_PrependToPath("bb;b;abc", "b")), "b;bb;abc");
}

TEST(FilePathText, PrependTakesOnlyTheFirstLaterItemOut) {
  EXPECT_EQ(Take(File_PrependToPath("a;b;c;b", "b")), "b;a;c;b");
}

TEST(FilePathText, PrependToAnEmptyPathKeepsItsEmptyItem) {
  EXPECT_EQ(Take(File_PrependToPath("", "b")), "b;");
  EXPECT_EQ(Take(File_PrependToPath("a;;b", "")), ";a;b");
}

std::string MapPrefix(const char *path, std::vector<const char *> oldPrefixes,
                      std::vector<const char *> newPrefixes) {
  return Take(File_MapPathPrefix(path, oldPrefixes.data(), newPrefixes.data(), oldPrefixes.size()));
}

TEST(FilePathText, MapsTheFirstPrefixOfWholeComponents) {
  EXPECT_EQ(MapPrefix("/a/b/c", {"/a/b"}, {"/x"}), "/x/c");
  EXPECT_EQ(MapPrefix("/a/b", {"/a/b"}, {"/x"}), "/x");
  EXPECT_EQ(MapPrefix("/a/bc", {"/a/b"}, {"/x"}), "null");
  EXPECT_EQ(MapPrefix("/a/b/c", {"/a/bc", "/a", "/a/b"}, {"/1", "/2", "/3"}), "/2/b/c");
  EXPECT_EQ(MapPrefix("/a", {"/a/b"}, {"/x"}), "null");
  EXPECT_EQ(MapPrefix("/a", {}, {}), "null");
}

TEST(FilePathText, MapsPrefixesWithoutTheirTrailingSlashes) {
  EXPECT_EQ(MapPrefix("/a/b/c", {"/a/b//"}, {"/x/"}), "/x/c");
  EXPECT_EQ(MapPrefix("/a/b/", {"/a/b/"}, {"x"}), "x/");
  EXPECT_EQ(MapPrefix("/a/b", {"/a"}, {"/"}), "//b");
  EXPECT_EQ(MapPrefix("/", {"/"}, {"/x"}), "/x");
  EXPECT_EQ(MapPrefix("/a", {"/"}, {"/x"}), "null");
}

TEST(FilePathText, MappingAPathToNothingStopsTheProgram) {
  EXPECT_EXIT(MapPrefix("/a", {"/a"}, {""}), testing::ExitedWithCode(255), "ASSERT lib/file/filePath.cc:");
}

TEST_F(FilePath, FullPathOfNothingIsTheWorkingDirectory) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  EXPECT_EQ(Take(File_FullPath("")), "/t/dir");
  EXPECT_EQ(Take(File_FullPath(nullptr)), "/t/dir");
  EXPECT_EQ(Take(File_FullPathKeepLink("")), "/t/dir");
  EXPECT_EQ(Take(File_FullPathKeepLink(nullptr)), "/t/dir");
}

TEST_F(FilePath, FullPathResolvesWhatThereIs) {
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  ASSERT_EQ(symlink("../file", "/t/dir/file"), 0);
  ASSERT_EQ(chdir("/t/dir"), 0);
  EXPECT_EQ(Take(File_FullPath("/t//link/./file")), "/t/file");
  EXPECT_EQ(Take(File_FullPath("file")), "/t/file");
  EXPECT_EQ(Take(File_FullPath("../link/")), "/t/dir");
  EXPECT_EQ(Take(File_FullPath("/../..")), "/");
}

TEST_F(FilePath, FullPathKeepsTheWordsOfWhatCannotBeResolved) {
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  ASSERT_EQ(symlink("loop", "/t/loop"), 0);
  ASSERT_EQ(chdir("/t"), 0);
  EXPECT_EQ(Take(File_FullPath("/t//link///missing/")), "/t/link/missing/");
  EXPECT_EQ(Take(File_FullPath("missing//x")), "/t/missing/x");
  EXPECT_EQ(Take(File_FullPath("loop")), "/t/loop");
  EXPECT_EQ(Take(File_FullPath("file/x")), "/t/file/x");
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(Take(File_FullPath("missing")), "/missing");
}

TEST_F(FilePath, FullPathOfAnyLength) {
  for (const size_t size : {4095U, 4096U, 8192U}) {
    std::string path = "/t/missing";
    path.resize(size, 'x');
    EXPECT_EQ(Take(File_FullPath(path.c_str())), path) << size;
    for (size_t at = 2; at + 1 < size; at += 2) {
      path[at] = '/';
    }
    EXPECT_EQ(Take(File_FullPath((path + "//").c_str())), path + "/") << size;
  }
}

TEST_F(FilePath, FullPathKeepLinkResolvesAllButTheLinkItself) {
  ASSERT_EQ(symlink("dir", "/t/link"), 0);
  ASSERT_EQ(symlink("../file", "/t/dir/file"), 0);
  ASSERT_EQ(symlink("t/file", "/rootLink"), 0);
  EXPECT_EQ(Take(File_FullPathKeepLink("/t/link/file")), "/t/dir/file");
  EXPECT_EQ(Take(File_FullPathKeepLink("/t/link")), "/t/link");
  EXPECT_EQ(Take(File_FullPathKeepLink("/t/link/")), "/t/dir");
  EXPECT_EQ(Take(File_FullPathKeepLink("/t/link/missing")), "/t/link/missing");
  EXPECT_EQ(Take(File_FullPathKeepLink("//rootLink")), "/rootLink");
  ASSERT_EQ(chdir("/t/dir"), 0);
  EXPECT_EQ(Take(File_FullPathKeepLink("file")), "/t/dir/file");
  ASSERT_EQ(symlink("missing", "/t/dangling"), 0);
  EXPECT_EQ(Take(File_FullPathKeepLink("../dangling")), "/t/dangling");
}

TEST_F(FilePath, WithoutAWorkingDirectoryThereIsNoFullPath) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  ASSERT_EQ(rmdir("/t/dir"), 0);
  ASSERT_EQ(symlink("file", "/t/link"), 0);
  EXPECT_EQ(Take(File_FullPath("x")), "null");
  EXPECT_TRUE(Msg_Present());
  EXPECT_EQ(Take(File_FullPathKeepLink("x")), "null");
  EXPECT_EQ(Take(File_FullPath("/t/link")), "/t/file");
}

TEST_F(FilePath, CwdIsTheWorkingDirectory) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  EXPECT_EQ(Take(File_Cwd(nullptr)), "/t/dir");
  EXPECT_EQ(Take(File_Cwd("")), "/t/dir");
  EXPECT_FALSE(HasLogged("Drive letter"));
}

TEST_F(FilePath, CwdWarnsOfADriveLetter) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(Take(File_Cwd("C:")), "/t/dir");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "FILE: File_Cwd: Drive letter C: on Linux?\n");
  EXPECT_TRUE(HasLogged("| FILE: File_Cwd: Drive letter C: on Linux?\n"));
}

TEST_F(FilePath, CwdTellsThatTheDirectoryIsGone) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  ASSERT_EQ(rmdir("/t/dir"), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(File_Cwd(nullptr), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "FILE: File_Cwd: getcwd() failed: No such file or directory\n");
  EXPECT_TRUE(
      HasMessage("[msg.filePosix.getcwd] Unable to retrieve the current working directory: No such "
                 "file or directory. Check if the directory has been deleted or unmounted.\n"));
}

TEST_F(FilePath, CwdHasRoomForAPathOfTheSystemsAndNoMore) {
  const std::string name(250, 'x');
  ASSERT_EQ(chdir("/t/dir"), 0);
  size_t length = 6;
  while (length + name.size() + 1 < 4096) {
    ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
    ASSERT_EQ(chdir(name.c_str()), 0);
    length += name.size() + 1;
    EXPECT_EQ(Take(File_Cwd(nullptr)).size(), length);
  }
  ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
  ASSERT_EQ(chdir(name.c_str()), 0);
  EXPECT_EQ(File_Cwd(nullptr), nullptr);
  EXPECT_EQ(errno, ERANGE);
}

TEST_F(FilePathLatin1, TheWorkingDirectoryAndWhatIsResolvedAreConverted) {
  ASSERT_EQ(mkdir("/t/\xE9t\xE9", 0755), 0);
  ASSERT_EQ(symlink("\xE9t\xE9", "/t/link"), 0);
  ASSERT_EQ(chdir("/t/\xE9t\xE9"), 0);
  EXPECT_EQ(Take(File_Cwd(nullptr)), "/t/\u00E9t\u00E9");
  EXPECT_EQ(Take(File_FullPathKeepLink("name")), "/t/\u00E9t\u00E9/name");
  EXPECT_EQ(Take(File_FullPath("/t/link")), "/t/\u00E9t\u00E9");
}

TEST_F(FilePathAscii, AWorkingDirectoryThatCannotBeConvertedIsUnknown) {
  ASSERT_EQ(mkdir("/t/\xE9t\xE9", 0755), 0);
  ASSERT_EQ(chdir("/t/\xE9t\xE9"), 0);
  EXPECT_EQ(File_Cwd(nullptr), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(HasLogged("FILE: File_Cwd: getcwd() failed: Invalid argument\n"));
  EXPECT_TRUE(HasMessage("Unable to retrieve the current working directory: Invalid argument. Check if"));
}

TEST_F(FilePathAscii, APathThatCannotBeExpressedKeepsItsWords) {
  EXPECT_EQ(Take(File_FullPath("/t//\u00E9t\u00E9")), "/t/\u00E9t\u00E9");
}

TEST_F(FilePath, NamesThatAreNoTextKeepTheirBytes) {
  ASSERT_EQ(mkdir("/t/\xE9t\xE9", 0755), 0);
  ASSERT_EQ(chdir("/t/\xE9t\xE9"), 0);
  EXPECT_EQ(Take(File_Cwd(nullptr)), "/t/\xE9t\xE9");
  EXPECT_EQ(Take(File_FullPath("//t//\xE9t\xE9")), "/t/\xE9t\xE9");
}

// Where a file is found, "not" when it isn't.
std::string Find(const char *file, const char *searchPath, const char *workingDirectory = "/t/work") {
  char *result = nullptr;
  const bool isFound = File_FindFileInSearchPath(file, searchPath, workingDirectory, &result);
  EXPECT_EQ(File_FindFileInSearchPath(file, searchPath, workingDirectory, nullptr), isFound);
  return isFound ? Take(result) : "not";
}

class FilePathSearch : public FileHost {
  void Describe(testhost::Host &host) override {
    host.File("/t/work/here", "").File("/t/work/sub/name", "").File("/t/work/sub/other", "");
    host.File("/t/one/name", "")
        .File("/t/two/name", "")
        .File("/t/two/alone", "")
        .SymLink("/t/two/link", "alone");
  }
};

TEST_F(FilePathSearch, AFileWhereItsPathSaysComesFirst) {
  EXPECT_EQ(Find("/t/two/name", "/t/one"), "/t/two/name");
  EXPECT_EQ(Find("here", "/t/one"), "/t/work/here");
  EXPECT_EQ(Find("sub/name", "/t/one"), "/t/work/sub/name");
}

TEST_F(FilePathSearch, ItemsAreSearchedInTheirOrderForTheBaseName) {
  EXPECT_EQ(Find("name", "/t/one;/t/two"), "/t/one/name");
  EXPECT_EQ(Find("name", "/t/two;/t/one"), "/t/two/name");
  EXPECT_EQ(Find("/missing/name", ";;/t/missing;/t/two;"), "/t/two/name");
  EXPECT_EQ(Find("missing/alone", "/t/one;/t/two"), "/t/two/alone");
}

TEST_F(FilePathSearch, RelativeItemsAreSeenFromTheWorkingDirectoryGiven) {
  EXPECT_EQ(Find("name", "sub"), "/t/work/sub/name");
  EXPECT_EQ(Find("/missing/here", "."), "/t/work/here");
  EXPECT_EQ(Find("name", "../one"), "/t/one/name");
}

TEST_F(FilePathSearch, WhatIsFoundIsAFullPath) {
  EXPECT_EQ(Find("link", "/t//one/../two"), "/t/two/alone");
  ASSERT_EQ(chdir("/t"), 0);
  EXPECT_EQ(Find("here", "", "work"), "/t/work/here");
}

TEST_F(FilePathSearch, WhatIsNotThereIsNotFound) {
  EXPECT_EQ(Find("missing", "/t/one;sub;."), "not");
  EXPECT_EQ(Find("name", ""), "not");
  EXPECT_EQ(Find("name", ";;"), "not");
  char leftAlone[] = "left alone";
  char *result = leftAlone;
  EXPECT_FALSE(File_FindFileInSearchPath("missing", "sub", "/t/work", &result));
  EXPECT_EQ(result, leftAlone);
}

TEST_F(FilePathSearch, WhatHasNoFullPathIsAFailure) {
  ASSERT_EQ(chdir("/t/dir"), 0);
  ASSERT_EQ(rmdir("/t/dir"), 0);
  char *result = nullptr;
  EXPECT_TRUE(File_FindFileInSearchPath("file", "", "..", nullptr));
  EXPECT_FALSE(File_FindFileInSearchPath("file", "", "..", &result));
  EXPECT_EQ(result, nullptr);
  EXPECT_TRUE(Msg_Present());
}

}  // namespace
