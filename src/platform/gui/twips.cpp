#include "platform/gui/twips.h"

#include <cmath>

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace orvex::platform {

double LogicalDpi(const QWidget* widget) {
  const QScreen* screen = widget ? widget->screen() : QGuiApplication::primaryScreen();
  if (!screen) return 96.0;
  const double dpi = screen->logicalDotsPerInch();
  return dpi > 0 ? dpi : 96.0;
}

int TwipsToPixelsAt(int twips, double dpi) {
  return static_cast<int>(std::lround(twips * dpi / kTwipsPerInch));
}

int PixelsToTwipsAt(int pixels, double dpi) {
  return static_cast<int>(std::lround(pixels * kTwipsPerInch / dpi));
}

int TwipsToPixels(int twips, const QWidget* widget) { return TwipsToPixelsAt(twips, LogicalDpi(widget)); }
int PixelsToTwips(int pixels, const QWidget* widget) { return PixelsToTwipsAt(pixels, LogicalDpi(widget)); }

} // namespace orvex::platform
