#include "run/gui/orvex_cli.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace orvex {

QString OrvexCliPath() {
  const QString beside = QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("orvex-cli"));
  if (QFileInfo(beside).isExecutable()) return beside;
  return QStandardPaths::findExecutable(QStringLiteral("orvex-cli"));
}

} // namespace orvex
