// The qubit window "Qubits": a stay-on-top tool window with one sphere picture per qubit,
// laid out column by column in the grid for the number of qubits, each box as large as the
// qubit-size setting says.
//
// Use: create it with the workspace and the number of qubits when animation starts (or show
// it at any time with given values through ShowValues); during an animated run call Frame()
// after every engine call: it draws EngineX/Y/Z (qubit q at index q - 1) and lets pending
// events run once. With AnimateQubits off, Frame() does nothing. Relayout() applies a changed
// QubitSize.
#pragma once

#include <QWidget>

#include <array>
#include <vector>

class QScrollArea;

namespace orvex {

class Workspace;

// One box of the qubit window: the sphere and arrow of one qubit.
class QubitSphereBox : public QWidget {
  Q_OBJECT
public:
  explicit QubitSphereBox(int qubit, QWidget* parent = nullptr);
  void setValues(double A, double B, double C);  // repaints later (update)
  // The arrow's path during the current run, oldest first (empty: none); repaints later.
  void setTrail(std::vector<std::array<double, 3>> trail);
  const std::vector<std::array<double, 3>>& trail() const { return trail_; }
  int qubit() const { return qubit_; }
  double A() const { return a_; }
  double B() const { return b_; }
  double C() const { return c_; }
  int paintCount() const { return paints_; }

protected:
  void paintEvent(QPaintEvent* event) override;

private:
  int qubit_;
  // The centre of the sphere: no arrow until values arrive.
  double a_ = 0.5, b_ = 0.5, c_ = 0.5;
  std::vector<std::array<double, 3>> trail_;
  int paints_ = 0;
};

class sQubit : public QWidget {
  Q_OBJECT
public:
  // `qubits` is 1..32 (others throw "Subscript out of range"); the box edge comes from
  // workspace.QubitSize.
  sQubit(Workspace& workspace, int qubits, QWidget* parent = nullptr);

  // One animation frame: nothing when AnimateQubits is off; otherwise every box takes its
  // qubit's values from EngineX/Y/Z, is repainted, and pending events run once.
  void Frame();
  // Shows given values without the engine arrays (qubit q = 1..n).
  void ShowValues(int qubit, double A, double B, double C);
  // Lays the boxes out again for the current QubitSize and fits the window around them.
  void Relayout();

  int qubits() const { return static_cast<int>(boxes_.size()); }
  int boxEdge() const { return edge_; }
  QubitSphereBox* box(int qubit) const;  // 1..n
  int framesDrawn() const { return frames_; }

private:
  void FitToScreen();

  Workspace& ws_;
  QScrollArea* scroll_ = nullptr;
  QWidget* grid_ = nullptr;
  std::vector<QubitSphereBox*> boxes_;
  int edge_ = 0;
  int frames_ = 0;
};

} // namespace orvex
