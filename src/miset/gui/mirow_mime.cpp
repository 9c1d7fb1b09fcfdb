#include "miset/gui/mirow_mime.h"

#include <QMimeData>
#include <QList>

#include "platform/gui/qt_text.h"

namespace orvex {

QMimeData* EncodeMIRow(const MIListRow& row) {
  auto* data = new QMimeData;
  // The text goes as the bytes it has: a name read from disk need not be UTF-8.
  QByteArray payload(row.Key.data(), static_cast<qsizetype>(row.Key.size()));
  payload += '\n';
  payload.append(row.Text.data(), static_cast<qsizetype>(row.Text.size()));
  payload += '\n';
  payload += QByteArray::number(row.Icon);
  data->setData(QString::fromLatin1(kMIRowMimeType), payload);
  data->setText(platform::FromBytes(row.Text));
  return data;
}

std::optional<MIListRow> DecodeMIRow(const QMimeData* data) {
  const QString type = QString::fromLatin1(kMIRowMimeType);
  if (!data || !data->hasFormat(type)) return std::nullopt;
  const QList<QByteArray> parts = data->data(type).split('\n');
  if (parts.size() != 3) return std::nullopt;
  bool ok = false;
  const int icon = parts[2].toInt(&ok);
  if (!ok) return std::nullopt;
  return MIListRow{parts[0].toStdString(), parts[1].toStdString(), icon};
}

} // namespace orvex
