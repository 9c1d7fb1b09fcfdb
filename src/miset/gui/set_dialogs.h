// The three small modal windows of the set commands: the set chooser SelectMI, the name
// prompt GetDirName and the qubit-count window SetQubits.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <QDialog>

class QComboBox;
class QLineEdit;
class QListWidget;
class QPushButton;

namespace orvex {

// "Select micro instruction set": one row per set directory; OK or a double click chooses.
class SelectMI : public QDialog {
  Q_OBJECT
public:
  SelectMI(const std::vector<std::string>& names, int preselected, QWidget* parent = nullptr);
  QListWidget* ListView1 = nullptr;
  QPushButton* OK = nullptr;      // Command1(0)
  QPushButton* Cancel = nullptr;  // Command1(1)
  // The chosen row after exec(); nullopt for Cancel or a closed window.
  std::optional<int> choice() const { return choice_; }

  // The row selected now (-1 none).
  int selectedRow() const;
  // Shows the chooser modally; `selected` goes in as the preselected row and comes back as
  // the row selected when the window closed.
  static std::optional<int> Choose(const std::vector<std::string>& names, int& selected,
                                   QWidget* parent = nullptr);

private:
  void accept() override;
  std::optional<int> choice_;
};

// The name prompt; its caption is set by the caller ("New MI set", "Copy MI set").
class GetDirName : public QDialog {
  Q_OBJECT
public:
  explicit GetDirName(QWidget* parent = nullptr);
  QLineEdit* Text1 = nullptr;
  QPushButton* OK = nullptr;
  QPushButton* Cancel = nullptr;
  // The name after exec(); "" when cancelled.
  std::string name() const;

  static std::string Ask(const std::string& caption, QWidget* parent = nullptr);

private:
  void accept() override;
  void reject() override;
};

// "Set number of qubits": Combo1 offers 2..32.
class SetQubits : public QDialog {
  Q_OBJECT
public:
  explicit SetQubits(int current, QWidget* parent = nullptr);
  QComboBox* Combo1 = nullptr;
  QPushButton* OK = nullptr;
  QPushButton* Cancel = nullptr;
  int chosen() const;

  static std::optional<int> Choose(int current, QWidget* parent = nullptr);
};

} // namespace orvex
