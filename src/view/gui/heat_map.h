// A heat map of <sigma> over a grid of two parameters: one cell per grid point (the first
// parameter along x, the second along y, each in the order given), a colour bar from -1 to 1
// at the right, and each axis labelled with its parameter's name and its first and last
// value. <sigma> takes the qubit display's colour of Q = (1 - <sigma>) / 2, so +1 is green and
// -1 red as on the stripes; a cell without a value stays grey.
#pragma once

#include <QColor>
#include <QRect>
#include <QString>
#include <QWidget>

#include <vector>

namespace orvex {

class HeatMap : public QWidget {
  Q_OBJECT
public:
  explicit HeatMap(QWidget* parent = nullptr);

  // values[ix][iy] for x[ix], y[iy] (NaN for no value).
  void setData(const QString& xName, const std::vector<double>& x, const QString& yName,
               const std::vector<double>& y, const std::vector<std::vector<double>>& values);

  static QColor colorOf(double sigma);
  // Where the cell of x[ix], y[iy] is drawn (the first y at the bottom); empty without data.
  QRect cellRect(int ix, int iy) const;
  QString xLabel() const;
  QString yLabel() const;

  QSize sizeHint() const override { return {520, 380}; }

protected:
  void paintEvent(QPaintEvent* event) override;

private:
  QRect plotRect() const;

  QString xName_, yName_;
  std::vector<double> x_, y_;
  std::vector<std::vector<double>> values_;
};

} // namespace orvex
