#include "platform/gui/qt_dialogs.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QStringList>

#include "platform/gui/qt_text.h"

namespace orvex::platform {
namespace {

QMessageBox::Icon QtIcon(Icon icon) {
  switch (icon) {
  case Icon::Critical: return QMessageBox::Critical;
  case Icon::Exclamation: return QMessageBox::Warning;
  case Icon::Information: return QMessageBox::Information;
  case Icon::Question: return QMessageBox::Question;
  case Icon::None: break;
  }
  return QMessageBox::NoIcon;
}

// Both letter cases of a pattern's extension, so "*.KVP" also matches "a.kvp".
QString CaseFreePatterns(const QString& patterns) {
  QStringList out;
  for (const QString& p : patterns.split(QChar(';'), Qt::SkipEmptyParts)) {
    const QString t = p.trimmed();
    if (t == QLatin1String("*.*")) {
      out << QStringLiteral("*");
      continue;
    }
    for (const QString& v : {t, t.toUpper(), t.toLower()})
      if (!out.contains(v)) out << v;
  }
  return out.join(QChar(' '));
}

// The extension of the filter's first pattern ("*.KVP" gives "kvp"), which a save dialog adds to
// a name typed without one, so the file is found again under that filter; empty for "*.*".
QString DefaultSuffix(const std::string& filter) {
  const QStringList parts = QString::fromStdString(filter).split(QChar('|'));
  if (parts.size() < 2) return {};
  const QString first = parts[1].split(QChar(';'), Qt::SkipEmptyParts).value(0).trimmed();
  if (!first.startsWith(QLatin1String("*."))) return {};
  const QString extension = first.mid(2);
  if (extension.contains(QChar('*')) || extension.contains(QChar('?'))) return {};
  return extension.toLower();
}

} // namespace

QString QtFileFilter(const std::string& filter) {
  const QStringList parts = QString::fromStdString(filter).split(QChar('|'));
  QStringList filters;
  for (int i = 0; i + 1 < parts.size(); i += 2) {
    QString desc = parts[i];
    const int paren = desc.indexOf(QChar('('));
    if (paren >= 0) desc = desc.left(paren).trimmed();
    filters << desc + QStringLiteral(" (") + CaseFreePatterns(parts[i + 1]) + QStringLiteral(")");
  }
  return filters.join(QStringLiteral(";;"));
}

Answer QtDialogHandler::message(const std::string& text, Icon icon, Buttons buttons,
                                const std::string& detail) {
  QMessageBox box(QtIcon(icon), QString::fromLatin1(kTitle), DisplayText(text), QMessageBox::NoButton,
                  parent_ ? parent_ : QApplication::activeWindow());
  if (!detail.empty()) box.setDetailedText(FromBytes(detail));
  switch (buttons) {
  case Buttons::OK: box.setStandardButtons(QMessageBox::Ok); break;
  case Buttons::OKCancel: box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel); break;
  case Buttons::YesNo: box.setStandardButtons(QMessageBox::Yes | QMessageBox::No); break;
  case Buttons::YesNoCancel:
    box.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
    break;
  }
  const int r = box.exec();
  switch (r) {
  case QMessageBox::Yes: return Answer::Yes;
  case QMessageBox::No: return Answer::No;
  case QMessageBox::Ok: return Answer::OK;
  default:
    // Closing the box counts as its escape button: Cancel, or No / OK where there is none.
    if (buttons == Buttons::YesNo) return Answer::No;
    if (buttons == Buttons::OK) return Answer::OK;
    return Answer::Cancel;
  }
}

std::optional<std::string> QtDialogHandler::chooseFile(const FileRequest& request) {
  QWidget* parent = parent_ ? parent_ : QApplication::activeWindow();
  QString start = FromBytes(request.directory);
  if (!request.fileName.empty()) start = start + FromBytes(request.fileName);
  const QString title = FromBytes(request.title);
  const QString filter = QtFileFilter(request.filter);
  QFileDialog dialog(parent, title, start, filter);
  dialog.setAcceptMode(request.save ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
  dialog.setFileMode(request.save ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
  if (request.save) dialog.setDefaultSuffix(DefaultSuffix(request.filter));
  if (dialog.exec() != QDialog::Accepted) return std::nullopt;
  const QStringList files = dialog.selectedFiles();
  if (files.isEmpty() || files.first().isEmpty()) return std::nullopt;
  return ToBytes(files.first());
}

void QtDialogHandler::beep() { QApplication::beep(); }

} // namespace orvex::platform
