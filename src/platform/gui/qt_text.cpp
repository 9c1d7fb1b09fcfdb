#include "platform/gui/qt_text.h"

#include <QStringDecoder>

namespace orvex::platform {

QString FromBytes(const std::string& bytes) {
  QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
  QString s = utf8.decode(QByteArrayView(bytes.data(), static_cast<qsizetype>(bytes.size())));
  if (!utf8.hasError()) return s;
  return QString::fromLatin1(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

std::string ToBytes(const QString& text) { return text.toStdString(); }

QString DisplayText(const std::string& message) {
  QString s = FromBytes(message);
  s.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
  s.replace(QChar('\r'), QChar('\n'));
  return s;
}

} // namespace orvex::platform
