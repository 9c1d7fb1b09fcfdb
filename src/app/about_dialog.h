// The About box: title, version, credits, and a button that starts this system's
// system-information tool.
#pragma once

#include <QDialog>

#include <functional>
#include <optional>
#include <string>
#include <vector>

class QLabel;
class QPushButton;

namespace orvex {

// "Version " + major.minor.patch of the project.
std::string VersionText();

// Programs that show system information, most specific first.
const std::vector<std::string>& SystemInfoTools();
// The first of `names` found as an executable file in the directories of `pathVariable`
// (a PATH value), as a full path; nullopt when none is found.
std::optional<std::string> FindSystemInfoTool(const std::string& pathVariable,
                                              const std::vector<std::string>& names);

// Starts a program detached; false when it could not be started.
using ProgramStarter = std::function<bool(const std::string& program)>;
ProgramStarter DetachedProgramStarter();  // QProcess::startDetached

// Finds a tool on `pathVariable` and starts it; when there is none (or it does not start):
// "System Information Is Unavailable At This Time" (plain box, OK).
void StartSysInfo(const std::string& pathVariable, const ProgramStarter& start,
                  const std::vector<std::string>& names = SystemInfoTools());

class frmAbout : public QDialog {
  Q_OBJECT
public:
  explicit frmAbout(QWidget* parent = nullptr);

  // What cmdSysInfo uses: the PATH value to search (default: the environment's) and the
  // starter (default: detached process). Tests replace both.
  void setSysInfoSearch(std::string pathVariable, ProgramStarter start);

  QLabel* lblTitle = nullptr;
  QLabel* lblVersion = nullptr;
  QLabel* lblDescription = nullptr;
  QPushButton* cmdOK = nullptr;
  QPushButton* cmdSysInfo = nullptr;

private:
  std::string path_;
  ProgramStarter start_;
};

} // namespace orvex
