// The workbench: the application directory, the Qt dialogs, the main window and the first
// MI set.
#include <QApplication>

#include "app/main_window.h"
#include "platform/appdir.h"
#include "platform/gui/qt_dialogs.h"
#include "workspace/errors.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Orvex"));

  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
  const orvex::platform::AppDirOptions options = orvex::platform::ParseAppDirOptions(args);

  // The Qt dialogs answer message boxes and file dialogs; the main window's own port, above
  // them while it lives, its set chooser, prompts and status line.
  orvex::platform::QtDialogHandler dialogs;
  const orvex::platform::ScopedUserPort installed(dialogs);

  orvex::Workspace ws;
  try {
    ws.AppDir = orvex::platform::ResolveAppDir(options.home, orvex::platform::ExecutableDirectory());
  } catch (const orvex::RuntimeError& e) {
    orvex::ReportRuntimeError(e);
    return 1;
  }

  int result = 0;
  {
    orvex::MainWindow window(ws);
    dialogs.setParent(&window);
    window.setProgramArguments(options.positional);
    window.show();
    window.startUp();
    window.openProgramArguments();
    result = QApplication::exec();
    dialogs.setParent(nullptr);
  }
  return result;
}
