#include "miset/gui/mirow_mime.h"

#include <QMimeData>
#include <QStringList>

namespace orvex {

QMimeData* EncodeMIRow(const MIListRow& row) {
  auto* data = new QMimeData;
  const QString payload = QString::fromStdString(row.Key) + QChar('\n') +
                          QString::fromStdString(row.Text) + QChar('\n') + QString::number(row.Icon);
  data->setData(QString::fromLatin1(kMIRowMimeType), payload.toUtf8());
  data->setText(QString::fromStdString(row.Text));
  return data;
}

std::optional<MIListRow> DecodeMIRow(const QMimeData* data) {
  const QString type = QString::fromLatin1(kMIRowMimeType);
  if (!data || !data->hasFormat(type)) return std::nullopt;
  const QStringList parts = QString::fromUtf8(data->data(type)).split(QChar('\n'));
  if (parts.size() != 3) return std::nullopt;
  bool ok = false;
  const int icon = parts[2].toInt(&ok);
  if (!ok) return std::nullopt;
  return MIListRow{parts[0].toStdString(), parts[1].toStdString(), icon};
}

} // namespace orvex
