#include "app/window/history_dialog.h"

#include <QPushButton>

namespace veltro {

HistoryDialog::HistoryDialog(std::vector<EarlierConfiguration> choices, QWidget* parent)
    : QDialog(parent), choices_(std::move(choices))
{
    setupUi(this);
    for (const EarlierConfiguration& c : choices_)
        entries->addItem(QString::fromStdString(c.text));
    QPushButton* open = buttons->button(QDialogButtonBox::Open);
    open->setText("Im Editor öffnen");
    open->setEnabled(false);
    connect(entries, &QListWidget::currentRowChanged, this, [open](int row) { open->setEnabled(row >= 0); });
    connect(entries, &QListWidget::itemDoubleClicked, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(this, &QDialog::accepted, this, [this] {
        const int row = entries->currentRow();
        if (row >= 0)
            emit chosen(QString::fromStdString(choices_[std::size_t(row)].imageFile));
    });
}

} // namespace veltro
