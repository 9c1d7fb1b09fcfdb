// Export of data and pictures to files the user chooses.
#include "view/gui/export_file.h"

#include <cstdio>
#include <functional>
#include <filesystem>
#include <fstream>

#include <QBuffer>
#include <QPixmap>
#include <QWidget>

namespace orvex {

std::optional<std::string> WriteReplacing(const std::string& path, const std::string& bytes) {
  const std::string temporary = path + ".orvex-tmp";
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (!out) return "cannot be created";
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.flush();
    if (!out) {
      out.close();
      std::remove(temporary.c_str());
      return "cannot be written";
    }
  }
  std::error_code ec;
  std::filesystem::rename(temporary, path, ec);
  if (ec) {
    std::remove(temporary.c_str());
    return ec.message();
  }
  return std::nullopt;
}

namespace {

bool Export(platform::FileRequest request, const std::string& subject,
            const std::function<std::optional<std::string>(const std::string&)>& write) {
  request.save = true;
  const auto path = platform::ChooseFile(request);
  if (!path) return false;
  if (const auto failure = write(*path)) {
    platform::MsgBox(subject + " could not be saved to " + *path + ": " + *failure, platform::Icon::Critical);
    return false;
  }
  return true;
}

} // namespace

bool ExportBytes(platform::FileRequest request, const std::string& bytes, const std::string& subject) {
  return Export(std::move(request), subject, [&](const std::string& path) { return WriteReplacing(path, bytes); });
}

bool ExportPicture(platform::FileRequest request, QWidget* widget) {
  return Export(std::move(request), "The picture", [&](const std::string& path) -> std::optional<std::string> {
    QByteArray bytes;
    {
      QBuffer buffer(&bytes);
      buffer.open(QIODevice::WriteOnly);
      widget->grab().save(&buffer, "PNG");
    }
    if (bytes.isEmpty()) return "the picture could not be made";
    return WriteReplacing(path, std::string(bytes.constData(), static_cast<std::size_t>(bytes.size())));
  });
}

} // namespace orvex
