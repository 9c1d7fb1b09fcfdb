// The About box and the search for a system-information tool.
#include "app/about_dialog.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProcess>
#include <QPushButton>
#include <QVBoxLayout>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "orvex_version.h"
#include "platform/dialogs.h"

namespace orvex {

std::string VersionText() {
  return "Version " + std::to_string(ORVEX_VERSION_MAJOR) + "." +
         std::to_string(ORVEX_VERSION_MINOR) + "." + std::to_string(ORVEX_VERSION_PATCH);
}

const std::vector<std::string>& SystemInfoTools() {
  // Dedicated hardware and system reports first; the desktop's system monitor last.
  static const std::vector<std::string> tools = {
      "hardinfo2", "hardinfo", "kinfocenter", "lshw-gtk", "gnome-system-monitor"};
  return tools;
}

std::optional<std::string> FindSystemInfoTool(const std::string& pathVariable,
                                              const std::vector<std::string>& names) {
  namespace fs = std::filesystem;
#ifdef _WIN32
  const char sep = ';';
  const std::string suffix = ".exe";
#else
  const char sep = ':';
  const std::string suffix;
#endif
  std::vector<std::string> dirs;
  std::string::size_type start = 0;
  while (start <= pathVariable.size()) {
    const auto end = pathVariable.find(sep, start);
    const std::string dir = pathVariable.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (!dir.empty()) dirs.push_back(dir);  // an empty entry would mean the current directory: skipped
    if (end == std::string::npos) break;
    start = end + 1;
  }
  for (const std::string& name : names) {
    for (const std::string& dir : dirs) {
      const fs::path candidate = fs::path(dir) / (name + suffix);
      std::error_code ec;
      const fs::file_status st = fs::status(candidate, ec);
      if (ec || !fs::is_regular_file(st)) continue;
      const fs::perms p = st.permissions();
      const bool executable = (p & (fs::perms::owner_exec | fs::perms::group_exec |
                                    fs::perms::others_exec)) != fs::perms::none;
      if (executable) return candidate.string();
    }
  }
  return std::nullopt;
}

ProgramStarter DetachedProgramStarter() {
  return [](const std::string& program) {
    return QProcess::startDetached(QString::fromStdString(program), {});
  };
}

void StartSysInfo(const std::string& pathVariable, const ProgramStarter& start,
                  const std::vector<std::string>& names) {
  const auto tool = FindSystemInfoTool(pathVariable, names);
  if (tool && start && start(*tool)) return;
  platform::MsgBox("System Information Is Unavailable At This Time", platform::Icon::None,
                   platform::Buttons::OK);
}

frmAbout::frmAbout(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("frmAbout"));
  setWindowTitle(QStringLiteral("About Orvex"));
  const char* path = std::getenv("PATH");
  path_ = path ? path : "";
  start_ = DetachedProgramStarter();

  lblTitle = new QLabel(QStringLiteral("Orvex"), this);
  lblTitle->setObjectName(QStringLiteral("lblTitle"));
  QFont big = lblTitle->font();
  big.setPointSizeF(big.pointSizeF() * 1.8);
  big.setBold(true);
  lblTitle->setFont(big);

  lblVersion = new QLabel(QString::fromStdString(VersionText()), this);
  lblVersion->setObjectName(QStringLiteral("lblVersion"));

  lblDescription = new QLabel(this);
  lblDescription->setObjectName(QStringLiteral("lblDescription"));
  lblDescription->setText(QString::fromUtf8(
      "Orvex \u2014 hardware-level quantum computer workbench\n"
      "\n"
      "Workbench, micro instructions and spin simulation engine\n"
      "written and published by the Orvex team.\n"
      "The user's guide is help.htm in the application directory."));

  cmdOK = new QPushButton(QStringLiteral("OK"), this);
  cmdOK->setObjectName(QStringLiteral("cmdOK"));
  cmdOK->setDefault(true);
  cmdSysInfo = new QPushButton(QStringLiteral("&System Info..."), this);
  cmdSysInfo->setObjectName(QStringLiteral("cmdSysInfo"));
  connect(cmdOK, &QPushButton::clicked, this, &QDialog::accept);
  connect(cmdSysInfo, &QPushButton::clicked, this, [this] { StartSysInfo(path_, start_); });

  auto* buttons = new QVBoxLayout;
  buttons->addWidget(cmdOK);
  buttons->addWidget(cmdSysInfo);
  buttons->addStretch();
  auto* text = new QVBoxLayout;
  text->addWidget(lblTitle);
  text->addWidget(lblVersion);
  text->addSpacing(8);
  text->addWidget(lblDescription);
  text->addStretch();
  auto* top = new QHBoxLayout(this);
  top->addLayout(text, 1);
  top->addSpacing(12);
  top->addLayout(buttons);
  // The box is exactly as large as its texts need.
  top->setSizeConstraint(QLayout::SetFixedSize);
}

void frmAbout::setSysInfoSearch(std::string pathVariable, ProgramStarter start) {
  path_ = std::move(pathVariable);
  start_ = std::move(start);
}

} // namespace orvex
