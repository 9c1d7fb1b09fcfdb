// Help (opening help.htm through an injectable opener) and the About box with its search for
// a system-information tool.
#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>
#include <QTest>

#include <filesystem>
#include <string>
#include <vector>

#include "app/about_dialog.h"
#include "app/help.h"
#include "orvex_version.h"
#include "support/test_support.h"

namespace orvex {
namespace {

using platform::Answer;
using platform::Buttons;
using platform::Icon;

struct RecordingOpener {
  std::vector<std::string> opened;
  bool succeed = true;
  DocumentOpener fn() {
    return [this](const std::string& path) {
      opened.push_back(path);
      return succeed;
    };
  }
};

struct ShowHelpTest : ::testing::Test {
  test::TempDir dir;
  test::ScriptedDialogs dialogs;
  RecordingOpener opener;
};

TEST_F(ShowHelpTest, MissingFileOrFailedOpenerIsReported) {
  dialogs.answer(Answer::OK);
  ShowHelp(dir.path(), opener.fn());
  EXPECT_TRUE(opener.opened.empty());
  dialogs.answer(Answer::OK);
  OpenDocument(dir.path() + "nothing.htm", "", "", opener.fn());
  EXPECT_TRUE(opener.opened.empty());

  dir.write("help.htm", "<html></html>");
  opener.succeed = false;
  dialogs.answer(Answer::OK);
  ShowHelp(dir.path(), opener.fn());
  EXPECT_EQ(opener.opened.size(), 1u);

  ASSERT_EQ(dialogs.shown.size(), 3u);
  EXPECT_EQ(dialogs.shown[0].text, "Cannot locate file: " + dir.path() + "help.htm");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);
  EXPECT_EQ(dialogs.shown[1].text, "File not found");
  EXPECT_EQ(dialogs.shown[1].icon, Icon::Critical);
  EXPECT_EQ(dialogs.shown[2].text, "No program is set up to open " + dir.path() + "help.htm");
  EXPECT_EQ(dialogs.shown[2].icon, Icon::Critical);
}

TEST_F(ShowHelpTest, TheFileOnDiskGoesToTheOpenerWhateverItsCase) {
  dir.write("HELP.HTM", "<html></html>");
  ShowHelp(dir.path(), opener.fn());
  EXPECT_TRUE(dialogs.shown.empty());
  ASSERT_EQ(opener.opened.size(), 1u);
  EXPECT_EQ(std::filesystem::path(opener.opened[0]), std::filesystem::path(dir.path() + "HELP.HTM"));
}

TEST(frmAbout, CaptionTitleVersionAndCredits) {
  frmAbout about;
  EXPECT_EQ(about.windowTitle(), QStringLiteral("About Orvex"));
  EXPECT_EQ(about.lblTitle->text(), QStringLiteral("Orvex"));
  EXPECT_EQ(about.lblVersion->text().toStdString(),
            "Version " + std::to_string(ORVEX_VERSION_MAJOR) + "." +
                std::to_string(ORVEX_VERSION_MINOR) + "." + std::to_string(ORVEX_VERSION_PATCH));
  EXPECT_TRUE(about.lblDescription->text().contains(
      QString::fromUtf8("Orvex \u2014 hardware-level quantum computer workbench")));
  EXPECT_GE(about.lblDescription->text().count(QLatin1Char('\n')), 2);  // several lines
}

TEST(frmAbout, OKClosesTheBox) {
  frmAbout about;
  about.show();
  QTest::mouseClick(about.cmdOK, Qt::LeftButton);
  EXPECT_FALSE(about.isVisible());
  EXPECT_EQ(about.result(), QDialog::Accepted);
}

// Creates an executable (or not) file `name` in `dir`.
void Tool(const test::TempDir& dir, const std::string& name, bool executable = true) {
  namespace fs = std::filesystem;
  const std::string path = dir.write(name, "#!/bin/sh\n");
  fs::permissions(path,
                  executable ? fs::perms::owner_all : fs::perms::owner_read | fs::perms::owner_write);
}

TEST(SystemInfoTool, FirstToolOfTheListFoundOnThePath) {
  test::TempDir a, b;
  Tool(a, "kinfocenter");
  Tool(b, "hardinfo");
  Tool(a, "lshw-gtk", /*executable=*/false);
  const std::vector<std::string> names = {"hardinfo", "kinfocenter", "lshw-gtk"};
  // The list's order decides, not the order of the directories.
  EXPECT_EQ(FindSystemInfoTool(a.path() + ":" + b.path(), names),
            std::filesystem::path(b.path() + "hardinfo").string());
  EXPECT_EQ(FindSystemInfoTool(a.path(), names),
            std::filesystem::path(a.path() + "kinfocenter").string());
  EXPECT_EQ(FindSystemInfoTool(a.path(), {"lshw-gtk"}), std::nullopt);  // not executable
  EXPECT_EQ(FindSystemInfoTool("", names), std::nullopt);
  EXPECT_EQ(FindSystemInfoTool("::" + b.path() + ":", names),
            std::filesystem::path(b.path() + "hardinfo").string());
}

TEST(SystemInfoTool, ButtonStartsTheToolFound) {
  test::TempDir dir;
  Tool(dir, "kinfocenter");
  test::ScriptedDialogs dialogs;
  std::vector<std::string> started;
  frmAbout about;
  about.setSysInfoSearch(dir.path(), [&](const std::string& p) {
    started.push_back(p);
    return true;
  });
  QTest::mouseClick(about.cmdSysInfo, Qt::LeftButton);
  ASSERT_EQ(started.size(), 1u);
  EXPECT_EQ(std::filesystem::path(started[0]).filename(), "kinfocenter");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST(SystemInfoTool, NoToolOrAFailedStartIsUnavailable) {
  test::TempDir empty, withTool;
  Tool(withTool, "hardinfo");
  test::ScriptedDialogs dialogs;
  dialogs.answer(Answer::OK);
  dialogs.answer(Answer::OK);
  int starts = 0;
  frmAbout about;
  about.setSysInfoSearch(empty.path(), [&](const std::string&) { return ++starts, true; });
  QTest::mouseClick(about.cmdSysInfo, Qt::LeftButton);
  EXPECT_EQ(starts, 0);
  about.setSysInfoSearch(withTool.path(), [&](const std::string&) { return ++starts, false; });
  QTest::mouseClick(about.cmdSysInfo, Qt::LeftButton);
  EXPECT_EQ(starts, 1);
  ASSERT_EQ(dialogs.shown.size(), 2u);
  for (const auto& d : dialogs.shown) {
    EXPECT_EQ(d.text, "System Information Is Unavailable At This Time");
    EXPECT_EQ(d.icon, Icon::None);
    EXPECT_EQ(d.buttons, Buttons::OK);
  }
}

} // namespace
} // namespace orvex
