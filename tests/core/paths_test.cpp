// Path helpers: taking paths apart, relative program paths, case-insensitive lookups,
// creating directories with consent, and whole-file writes that never leave half a file.
#include <algorithm>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/test_support.h"
#include "core/error_of.h"
#include "workspace/errors.h"
#include "workspace/paths.h"
#include "workspace/workspace.h"

namespace orvex {
namespace {

using platform::Answer;

TEST(PathParts, FileNameAndDirectoryAcceptBothSeparators) {
  EXPECT_EQ(FileNameOf("c:\\x\\y.MI"), "y.MI");
  EXPECT_EQ(DirectoryOf("c:\\x\\y.MI"), "c:\\x\\");
  EXPECT_EQ(DirectoryOf("y.MI"), "");
  EXPECT_EQ(FileNameOf("y.MI"), "y.MI");
  EXPECT_EQ(FileNameOf("/a/b\\c.kvp"), "c.kvp");
  EXPECT_EQ(DirectoryOf("/a/b\\c.kvp"), "/a/b\\");
  EXPECT_EQ(FileNameOf("/a/"), "");
  EXPECT_EQ(NormalizeSeparators("progs\\a.kvp"), "progs/a.kvp");
  EXPECT_EQ(NameWithoutExtension("INITIALIZE.MI"), "INITIALIZE");
  EXPECT_EQ(NameWithoutExtension("a.b.MI"), "a.b");
  EXPECT_EQ(NameWithoutExtension("plain"), "plain");
}

TEST(RelativePath, WalksBackToACommonHead) {
  EXPECT_EQ(RelativePath("c:\\work\\progs\\a.kvp", "c:\\work\\"), "progs/a.kvp");
  EXPECT_EQ(RelativePath("c:\\work\\progs\\a.kvp", "c:\\work\\bin\\"), "../progs/a.kvp");
  EXPECT_EQ(RelativePath("/home/u/app/progs/a.kvp", "/home/u/app/"), "progs/a.kvp");
  EXPECT_EQ(RelativePath("/home/u/app/Progs/A.KVP", "/home/U/App/"), "progs/a.kvp");
  EXPECT_EQ(RelativePath("/home/u/other/a.kvp", "/home/u/app/bin/"), "../../other/a.kvp");
  EXPECT_EQ(RelativePath("/tmp/a.kvp", "/home/u/app/"), "../../../tmp/a.kvp");
  // Another drive: no common head at all.
  EXPECT_EQ(RelativePath("D:\\Progs\\A.kvp", "c:\\work\\"), "d:/progs/a.kvp");
  // The head is compared as text, so "/home/u/app2" shares "/home/u/" only.
  EXPECT_EQ(RelativePath("/home/u/app2/a.kvp", "/home/u/app/"), "../app2/a.kvp");
}

TEST(Lookup, IgnoresLetterCase) {
  test::TempDir dir;
  dir.write("Mi/Set One/Hadamard.mi", "x");
  dir.write("Mi/Set One/qubits.dat", " 2 \r\n");
  dir.write("Mi/Set One/loop.Mp", "@x");
  dir.write("Mi/Set One/notes.txt", "x");
  ::mkdir((dir.path() + "Mi/Set One/sub.mi").c_str(), 0777);  // a directory, not a file

  EXPECT_EQ(FindPath(dir.path(), "MI/SET ONE/HADAMARD.MI"), dir.path() + "Mi/Set One/Hadamard.mi");
  EXPECT_EQ(FindPath(dir.path(), "mi\\set one\\hadamard.MI"),
            dir.path() + "Mi/Set One/Hadamard.mi");
  EXPECT_EQ(FindPath(dir.path(), "MI/absent.MI"), std::nullopt);
  EXPECT_EQ(ResolvePath(dir.path() + "MI/set one/QUBITS.DAT"), dir.path() + "Mi/Set One/qubits.dat");
  EXPECT_TRUE(FileExists(dir.path() + "mi/SET ONE/hadamard.MI"));
  EXPECT_FALSE(FileExists(dir.path() + "mi/SET ONE"));
  EXPECT_TRUE(DirectoryExists(dir.path() + "mi/SET ONE"));
  EXPECT_FALSE(DirectoryExists(dir.path() + "mi/SET ONE/hadamard.mi"));
  EXPECT_FALSE(FileExists(dir.path() + "nothing/here"));

  EXPECT_EQ(ListFiles(dir.path() + "MI/set one/", ".MI"), std::vector<std::string>{"Hadamard.mi"});
  EXPECT_EQ(ListFiles(dir.path() + "MI/set one", ".mp"), std::vector<std::string>{"loop.Mp"});
  EXPECT_TRUE(ListFiles(dir.path() + "missing/", ".MI").empty());
  EXPECT_EQ(ListDirectories(dir.path() + "mi"), std::vector<std::string>{"Set One"});
}

TEST(Lookup, OfTwoNamesDifferingInCaseTheFirstListedWins) {
  test::TempDir dir;
  dir.write("a.MI", "upper");
  dir.write("A.mi", "lower");
  std::vector<std::string> listed = ListFiles(dir.path(), ".mi");
  ASSERT_EQ(listed.size(), 2u);
  EXPECT_EQ(FindPath(dir.path(), "A.MI"), dir.path() + listed[0]);
}

TEST(WholeFiles, ReadSplitAndWrite) {
  test::TempDir dir;
  EXPECT_EQ(SplitLines("a\r\nb\nc\rd"), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(SplitLines("a\r\n\r\n"), (std::vector<std::string>{"a", ""}));
  EXPECT_EQ(SplitLines("a\r\r\n"), (std::vector<std::string>{"a", ""}));
  EXPECT_TRUE(SplitLines("").empty());

  const std::string bytes("one\r\ntwo\0three\xff", 15);
  WriteWholeFile(dir.path() + "f.txt", bytes);
  EXPECT_EQ(ReadWholeFile(dir.path() + "F.TXT"), bytes);
  // Rewriting a file spelt in another case replaces it instead of adding a second one.
  WriteWholeFile(dir.path() + "F.Txt", "new");
  EXPECT_EQ(dir.read("f.txt"), "new");
  EXPECT_EQ(ListFiles(dir.path(), ".txt").size(), 1u);
  CopyWholeFile(dir.path() + "f.txt", dir.path() + "g.txt");
  EXPECT_EQ(dir.read("g.txt"), "new");

  const auto e = test::ErrorFrom([&] { ReadWholeFile(dir.path() + "missing.txt"); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->number(), 53);
  EXPECT_NE(e->description().find("missing.txt"), std::string::npos);
  EXPECT_EQ(test::ErrorNumberOf([&] { ReadWholeFile(dir.path() + "nodir/missing.txt"); }), 76);
}

TEST(WholeFiles, ALinkIsWrittenThroughAndStaysALink) {
  test::TempDir dir;
  dir.write("shared/A.MI", "old");
  dir.write("set/.keep", "");
  const std::string link = dir.path() + "set/A.MI";
  ASSERT_EQ(::symlink((dir.path() + "shared/A.MI").c_str(), link.c_str()), 0);
  WriteWholeFile(dir.path() + "set/a.mi", "new");
  EXPECT_EQ(dir.read("shared/A.MI"), "new");
  struct stat st {};
  ASSERT_EQ(::lstat(link.c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_EQ(ListFiles(dir.path() + "shared/", "").size(), 1u);  // no temporary file left
}

TEST(WholeFiles, AFileTooLargeToBeAnyOfOursIsRefusedUnread) {
  test::TempDir dir;
  const std::string big = dir.write("big.MI", "");
  ASSERT_EQ(::truncate(big.c_str(), static_cast<off_t>(kMaxWholeFileBytes) + 1), 0);  // sparse
  const auto e = test::ErrorFrom([&] { ReadWholeFile(big); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->code(), ErrorNumber::OutOfMemory);
  EXPECT_EQ(e->description(), "Out of memory: " + big + " is larger than 64 MB");
  ASSERT_EQ(::truncate(big.c_str(), static_cast<off_t>(kMaxWholeFileBytes)), 0);
  EXPECT_EQ(ReadWholeFile(big).size(), kMaxWholeFileBytes);
}

TEST(WholeFiles, AFailedWriteLeavesNoFileBehind) {
  test::TempDir dir;
  dir.write("plain", "not a directory");
  // The parent is a regular file: nothing can be created there, even by root.
  const auto e = test::ErrorFrom([&] { WriteWholeFile(dir.path() + "plain/x.MI", "data"); });
  ASSERT_TRUE(e);
  EXPECT_EQ(e->number(), 76);
  EXPECT_NE(e->description().find("plain/x.MI"), std::string::npos);
  EXPECT_EQ(test::ErrorNumberOf([&] { WriteWholeFile(dir.path() + "absent/x.MI", "data"); }), 76);
  // A target that is a directory cannot be replaced; the directory keeps its contents and
  // no temporary file is left next to it.
  dir.write("d.MI/inside", "kept");
  EXPECT_THROW(WriteWholeFile(dir.path() + "d.MI", "data"), RuntimeError);
  EXPECT_EQ(dir.read("d.MI/inside"), "kept");
  EXPECT_EQ(ListFiles(dir.path(), "").size(), 1u);  // only "plain"

  // A successful write leaves only its target (hidden temporary files would be listed).
  WriteWholeFile(dir.path() + "ok.MI", "data");
  std::vector<std::string> files = ListFiles(dir.path(), "");
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"ok.MI", "plain"}));
}

TEST(WholeFiles, ReadOnlyTargetIsRefusedWhenNotRoot) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may write read-only files";
  test::TempDir dir;
  dir.write("r.MI", "old");
  ::chmod((dir.path() + "r.MI").c_str(), 0444);
  EXPECT_THROW(WriteWholeFile(dir.path() + "r.MI", "new"), RuntimeError);
  EXPECT_EQ(dir.read("r.MI"), "old");
}

TEST(EnsureDirectory, AsksBeforeEachMissingComponent) {
  test::TempDir dir;
  dir.write("Progs/keep", "");
  char before[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  {
    test::ScriptedDialogs dialogs;
    dialogs.answer(Answer::Yes);
    dialogs.answer(Answer::Yes);
    // "progs" exists as "Progs": only "a" and "b" are asked for.
    EXPECT_TRUE(EnsureDirectory(dir.path() + "progs/a/b/"));
    ASSERT_EQ(dialogs.shown.size(), 2u);
    EXPECT_EQ(dialogs.shown[0].text, "Create (sub)directory?");
    EXPECT_EQ(dialogs.shown[0].icon, platform::Icon::Information);
    EXPECT_EQ(dialogs.shown[0].buttons, platform::Buttons::YesNo);
    EXPECT_TRUE(dir.exists("Progs/a/b"));
    EXPECT_FALSE(dir.exists("progs"));
  }
  {
    test::ScriptedDialogs dialogs;
    dialogs.answer(Answer::No);
    EXPECT_FALSE(EnsureDirectory(dir.path() + "x\\y\\"));
    EXPECT_EQ(dialogs.shown.size(), 1u);
    EXPECT_FALSE(dir.exists("x"));
  }
  {
    test::ScriptedDialogs dialogs;  // everything exists: no question
    EXPECT_TRUE(EnsureDirectory(dir.path() + "PROGS/A/"));
    EXPECT_TRUE(dialogs.shown.empty());
  }
  {
    // A component that is a regular file cannot be created: False, no exception.
    dir.write("file", "x");
    test::ScriptedDialogs dialogs;
    dialogs.answer(Answer::Yes);
    EXPECT_FALSE(EnsureDirectory(dir.path() + "file/sub/"));
  }
  char after[4096];
  ASSERT_NE(::getcwd(after, sizeof after), nullptr);
  EXPECT_STREQ(before, after);
}

} // namespace
} // namespace orvex
