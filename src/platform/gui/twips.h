// Window geometry kept in twips (1440 per inch) and converted at the edge, at the screen's
// logical DPI: 15 twips per pixel at 96 DPI.
#pragma once

class QWidget;

namespace orvex::platform {

inline constexpr int kTwipsPerInch = 1440;

// The logical DPI of the widget's screen (the primary screen without a widget; 96 when there
// is no screen at all).
double LogicalDpi(const QWidget* widget = nullptr);
int TwipsToPixels(int twips, const QWidget* widget = nullptr);
int PixelsToTwips(int pixels, const QWidget* widget = nullptr);
// The same at a given DPI.
int TwipsToPixelsAt(int twips, double dpi);
int PixelsToTwipsAt(int pixels, double dpi);

} // namespace orvex::platform
