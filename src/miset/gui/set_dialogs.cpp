#include "miset/gui/set_dialogs.h"

#include <QApplication>
#include <QComboBox>
#include <QElapsedTimer>
#include <QEvent>
#include <QKeyEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include "platform/gui/icons.h"
#include "miset/set_commands.h"
#include "miset/set_qubits.h"
#include "platform/gui/qt_text.h"
#include "platform/gui/twips.h"

namespace orvex {
namespace {

// OK and Cancel side by side at the bottom right: the button array Command1.
QHBoxLayout* ButtonRow(QDialog* dialog, QPushButton*& ok, QPushButton*& cancel) {
  auto* row = new QHBoxLayout;
  row->addStretch(1);
  ok = new QPushButton(QObject::tr("OK"), dialog);
  ok->setObjectName(QStringLiteral("Command1_0"));
  ok->setDefault(true);
  cancel = new QPushButton(QObject::tr("Cancel"), dialog);
  cancel->setObjectName(QStringLiteral("Command1_1"));
  row->addWidget(ok);
  row->addWidget(cancel);
  QObject::connect(ok, &QPushButton::clicked, dialog, &QDialog::accept);
  QObject::connect(cancel, &QPushButton::clicked, dialog, &QDialog::reject);
  return row;
}

} // namespace

SelectMI::SelectMI(const std::vector<std::string>& names, int preselected, QWidget* parent)
    : QDialog(parent) {
  setObjectName(QStringLiteral("SelectMI"));
  setWindowTitle(QStringLiteral("Select micro instruction set"));
  auto* layout = new QVBoxLayout(this);
  ListView1 = new QListWidget(this);
  ListView1->setObjectName(QStringLiteral("ListView1"));
  for (const std::string& n : names)
    new QListWidgetItem(OrvexToolIcon(ToolIcon::OpenMISet), platform::FromBytes(n), ListView1);
  if (preselected >= 0 && preselected < ListView1->count()) ListView1->setCurrentRow(preselected);
  layout->addWidget(ListView1);
  layout->addLayout(ButtonRow(this, OK, Cancel));
  connect(ListView1, &QListWidget::itemDoubleClicked, this, [this] { accept(); });
  resize(platform::TwipsToPixels(4500, this), platform::TwipsToPixels(4000, this));
}

void SelectMI::accept() {
  const int row = ListView1->currentRow();
  if (row >= 0) choice_ = row;
  QDialog::accept();
}

int SelectMI::selectedRow() const {
  const QList<QListWidgetItem*> items = ListView1->selectedItems();
  return items.isEmpty() ? -1 : ListView1->row(items.first());
}

std::optional<int> SelectMI::Choose(const std::vector<std::string>& names, int& selected,
                                    QWidget* parent) {
  SelectMI dialog(names, selected, parent);
  dialog.exec();
  selected = dialog.selectedRow();
  return dialog.choice();
}

GetDirName::GetDirName(QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("GetDirName"));
  setWindowTitle(QStringLiteral("Specify name of the new MI set"));
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(new QLabel(tr("Name:"), this));
  Text1 = new QLineEdit(this);
  Text1->setObjectName(QStringLiteral("Text1"));
  layout->addWidget(Text1);
  layout->addLayout(ButtonRow(this, OK, Cancel));
  resize(platform::TwipsToPixels(4500, this), sizeHint().height());
}

std::string GetDirName::name() const { return platform::ToBytes(Text1->text()); }

void GetDirName::accept() {
  // An illegal name is refused with a message and the window stays open for correction.
  if (!CheckSetName(name())) return;
  QDialog::accept();
}

void GetDirName::reject() {
  Text1->clear();
  QDialog::reject();
}

std::string GetDirName::Ask(const std::string& caption, QWidget* parent) {
  GetDirName dialog(parent);
  dialog.setWindowTitle(platform::FromBytes(caption));
  dialog.exec();
  return dialog.name();
}

namespace {

// Typing into the qubit-count list: digits typed in quick succession choose the entry they
// spell ("3" is 3, "3" then "0" is 30), instead of the list's search that jumps to the next
// entry starting with the key (a "3" typed on 3 went to 30). Other text keys do nothing.
class TypedNumber : public QObject {
public:
  using QObject::QObject;

  bool eventFilter(QObject* watched, QEvent* event) override {
    auto* combo = qobject_cast<QComboBox*>(watched);
    if (!combo || event->type() != QEvent::KeyPress) return false;
    auto* key = static_cast<QKeyEvent*>(event);
    const QString text = key->text();
    if (text.size() != 1 || !text.at(0).isDigit()) typed_.clear();  // another key ends a number
    if (text.size() != 1 || !text.at(0).isPrint() || text.at(0).isSpace() ||
        (key->modifiers() & (Qt::ControlModifier | Qt::AltModifier)))
      return false;
    if (text.at(0).isDigit()) {
      if (!typedAt_.isValid() || typedAt_.elapsed() > QApplication::keyboardInputInterval())
        typed_.clear();
      typedAt_.restart();
      typed_ += text;
      int index = combo->findText(typed_);
      if (index < 0) {
        typed_ = text;
        index = combo->findText(typed_);
      }
      if (index >= 0) combo->setCurrentIndex(index);
    }
    return true;
  }

private:
  QString typed_;
  QElapsedTimer typedAt_;
};

} // namespace

SetQubits::SetQubits(int current, QWidget* parent) : QDialog(parent) {
  setObjectName(QStringLiteral("SetQubits"));
  setWindowTitle(QStringLiteral("Set number of qubits"));
  auto* layout = new QVBoxLayout(this);
  Combo1 = new QComboBox(this);
  Combo1->setObjectName(QStringLiteral("Combo1"));
  for (int n = kMinQubits; n <= kMaxQubits; ++n) Combo1->addItem(QString::number(n));
  if (current >= kMinQubits && current <= kMaxQubits) Combo1->setCurrentIndex(current - kMinQubits);
  Combo1->installEventFilter(new TypedNumber(Combo1));
  layout->addWidget(Combo1);
  layout->addLayout(ButtonRow(this, OK, Cancel));
  // The set's files are rewritten only when OK itself is pressed: Enter in the list chooses
  // nothing and does not stand for OK.
  OK->setDefault(false);
  OK->setAutoDefault(false);
  Cancel->setAutoDefault(false);
}

int SetQubits::chosen() const { return Combo1->currentIndex() + kMinQubits; }

std::optional<int> SetQubits::Choose(int current, QWidget* parent) {
  SetQubits dialog(current, parent);
  if (dialog.exec() != QDialog::Accepted) return std::nullopt;
  return dialog.chosen();
}

} // namespace orvex
