// Nothing of a set is lost to a failed write, a kill or a name the files cannot carry: the
// number of qubits and set copies land whole or not at all, the source of a copy is only
// read, a crash's temporaries go when the set opens, and names and descriptions that would
// not come back from the files are refused.
#include "core/miset_fixture.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <map>

#include "mi/mi_file.h"
#include "miset/add_program.h"
#include "miset/mi_commands.h"
#include "miset/mi_editing.h"
#include "miset/mi_list.h"
#include "miset/open_miset.h"
#include "miset/set_commands.h"
#include "miset/set_qubits.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace fs = std::filesystem;

namespace orvex::test {
namespace {

using platform::Answer;

// Every regular file of a directory (hidden ones included) with its bytes.
std::map<std::string, std::string> Snapshot(const std::string& dir) {
  std::map<std::string, std::string> files;
  for (const std::string& f : ListFiles(dir, "")) files[f] = ReadWholeFile(dir + f);
  return files;
}

// Makes the safe writes fail, as a full or read-only disk would, for the targets chosen.
struct FaultyDisk {
  explicit FaultyDisk(std::function<int(const std::string&)> rule) {
    SetWriteFaultHook(std::move(rule));
  }
  ~FaultyDisk() { SetWriteFaultHook({}); }
};

struct SafekeepingTest : SetFixture {
  void SetUp() override {
    put("demo", "A.MI", MIText("about A", 0.5));
    put("demo", "B.MI", MIText("about B", 0.25));
    put("demo", "INITIALIZE.MI", MIText("init"));
    put("demo", "qubits.dat", " 2 \r\n");
    OpenMISet(ws, ui);
    ASSERT_EQ(ws.NumberOfQubits, 2);
    SaveAllMIs(ws);  // the files as this version writes them, so only a change shows
    source = dir.path() + "MI/demo/";
  }
  std::string source;
};

TEST_F(SafekeepingTest, AFullDiskDuringAQubitChangeLeavesTheSetAsItWas) {
  const auto before = Snapshot(source);
  const MicroInstruction a = ws.MITable(SlotOfRow(ws, rowOf("A")));
  int writes = 0;
  {
    FaultyDisk full([&](const std::string&) { return ++writes == 2 ? ENOSPC : 0; });
    EXPECT_THROW(SetQubits(ws, ui, 32), RuntimeError);
  }
  EXPECT_EQ(Snapshot(source), before);  // no MI rewritten, qubits.dat still 2, no temporary
  EXPECT_EQ(ws.NumberOfQubits, 2);
  EXPECT_EQ(ws.MITable(SlotOfRow(ws, rowOf("A"))).Field(1, 0), a.Field(1, 0));

  // Fewer qubits: the data of the dropped qubits comes back in memory when the write fails.
  ASSERT_TRUE(SetQubits(ws, ui, 3));
  const int n = SlotOfRow(ws, rowOf("B"));
  ws.MITable(n).Field(3, 0) = 7;
  SaveAllMIs(ws);
  const auto three = Snapshot(source);
  writes = 0;
  {
    FaultyDisk full([&](const std::string& target) {
      return FileNameOf(target) == "qubits.dat" ? ENOSPC : 0;
    });
    ScriptedDialogs dialogs;
    dialogs.answer(Answer::OK);  // the warning about qubit 3
    EXPECT_THROW(SetQubits(ws, ui, 2), RuntimeError);
  }
  EXPECT_EQ(Snapshot(source), three);
  EXPECT_EQ(ws.NumberOfQubits, 3);
  EXPECT_EQ(ws.MITable(n).Field(3, 0), 7);
}

TEST_F(SafekeepingTest, CopyingAReadOnlySetOnlyReadsIt) {
  // Root may write anywhere, so the source is made read-only by refusing every write into it.
  const auto before = Snapshot(source);
  const auto stamp = fs::last_write_time(source + "qubits.dat");
  ScriptedDialogs dialogs;
  dialogs.text("twin");
  dialogs.answer(Answer::Yes);  // create MI/twin
  {
    FaultyDisk readOnly([&](const std::string& target) {
      return target.rfind(source, 0) == 0 ? EROFS : 0;
    });
    ASSERT_TRUE(CopyMISet(ws));
  }
  EXPECT_EQ(Snapshot(source), before);
  EXPECT_EQ(fs::last_write_time(source + "qubits.dat"), stamp);
  EXPECT_EQ(Snapshot(dir.path() + "MI/twin/"), before);  // every file, qubits.dat included
  EXPECT_EQ(ws.MISetPath, dir.path() + "MI/twin/");
}

TEST_F(SafekeepingTest, AFailedCopyLeavesNoHalfMadeSet) {
  ScriptedDialogs dialogs;
  dialogs.text("twin");
  dialogs.text("twin");
  dialogs.answer(Answer::Yes);
  int writes = 0;
  {
    FaultyDisk full([&](const std::string&) { return ++writes == 3 ? ENOSPC : 0; });
    EXPECT_THROW(CopyMISet(ws), RuntimeError);
  }
  EXPECT_FALSE(dir.exists("MI/twin"));
  EXPECT_EQ(ws.MISetPath, source);
  EXPECT_EQ(ListMISets(ws), std::vector<std::string>{"demo"});

  // Into a directory that was there already: its own files stay, none of the copy's land.
  dir.write("MI/twin/notes.txt", "mine");
  dir.write("MI/twin/A.MI", "older A");
  writes = 0;
  {
    FaultyDisk full([&](const std::string&) { return ++writes == 3 ? ENOSPC : 0; });
    EXPECT_THROW(CopyMISet(ws), RuntimeError);
  }
  EXPECT_EQ(Snapshot(dir.path() + "MI/twin/"),
            (std::map<std::string, std::string>{{"A.MI", "older A"}, {"notes.txt", "mine"}}));
}

TEST_F(SafekeepingTest, OpeningTheSetRemovesWhatAKilledWriteLeftAndNothingElse) {
  const std::string a = dir.read("MI/demo/A.MI");
  // A child killed in the middle of saving A.MI, after its temporary was made.
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    SetWriteFaultHook([](const std::string&) {
      ::kill(::getpid(), SIGKILL);
      return 0;
    });
    WriteWholeFile(source + "A.MI", "never complete");
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  std::string left;
  for (const std::string& f : ListFiles(source, ""))
    if (IsOwnTemporary(f)) left = f;
  ASSERT_FALSE(left.empty()) << "the kill left no temporary";
  const auto old = fs::file_time_type::clock::now() - std::chrono::minutes(5);
  fs::last_write_time(source + left, old);
  // Names like ours that are not ours, and a temporary young enough to be a write going on.
  for (const char* other : {".A.MI.orvex-", ".A.MI.orvex-12345", "A.MI.orvex-abc123",
                            ".A.MI.backup1", ".A.MI.orvex-ab_123"}) {
    dir.write("MI/demo/" + std::string(other), "user's");
    fs::last_write_time(source + other, old);
  }
  dir.write("MI/demo/.B.MI.orvex-x1y2z3", "in progress");

  OpenMISet(ws, ui);
  EXPECT_FALSE(dir.exists("MI/demo/" + left));
  EXPECT_EQ(dir.read("MI/demo/A.MI"), a);
  EXPECT_EQ(Snapshot(source).size(), 4u + 5u + 1u);  // the set's four files and the six others
}

TEST_F(SafekeepingTest, NamesAndDescriptionsTheFilesCannotBringBackAreRefused) {
  ScriptedDialogs dialogs;
  const int n = SlotOfRow(ws, rowOf("A"));
  const std::string file = dir.read("MI/demo/A.MI");
  MIEdit e = LoadMIEdit(ws, n);
  for (const char* bad : {"Gate#2", "Gate!2", "#", "Not!"}) {
    e.Name = bad;
    dialogs.answer(Answer::OK);
    EXPECT_FALSE(StoreMIEdit(ws, n, e)) << bad;
    EXPECT_EQ(dialogs.shown.back().text, "The name " + std::string(bad) +
                                             " cannot be used for a micro instruction.\r"
                                             "Programs call an MI by its name, and a call ends at # or !.");
  }
  e.Name = "A";
  for (const char* bad : {"two\r\nlines", "first\nEND", "END", " about ", "has an INITIAL STATE",
                          "check norm first"}) {
    e.Description = bad;
    dialogs.answer(Answer::OK);
    EXPECT_FALSE(StoreMIEdit(ws, n, e)) << bad;
    EXPECT_EQ(dialogs.shown.back().text.rfind("The description cannot be saved as it stands:\r", 0), 0u);
  }
  EXPECT_EQ(dialogs.shown.size(), 10u);
  EXPECT_EQ(ws.MITable(n).Description, "about A");
  EXPECT_EQ(dir.read("MI/demo/A.MI"), file);

  // Keywords inside a longer line, "#" and "!" are plain text to the reader.
  for (const char* good : {"The END of ABOUT", "initially up", "", "  Gate #2 ! "}) {
    e.Description = good;
    ASSERT_TRUE(StoreMIEdit(ws, n, e)) << good;
    MicroInstruction back;
    ReadMI(source + "A.MI", back);
    EXPECT_EQ(back.Description, *good ? Trim(good) : "(none)");
  }
  EXPECT_EQ(dialogs.shown.size(), 10u);

  // A program whose name would be cut in a call is not made callable.
  dir.write("progs/a#b.kvp", "!Quantum program progs/a#b.kvp\r\n");
  dialogs.file(dir.path() + "progs/a#b.kvp");
  dialogs.answer(Answer::OK);
  EXPECT_EQ(AddQuantumProgram(ws, ui), 0);
  EXPECT_EQ(dialogs.shown.back().text.rfind("The program a#b cannot be added.", 0), 0u);
  EXPECT_TRUE(ListFiles(source, ".MP").empty());
}

} // namespace
} // namespace orvex::test
