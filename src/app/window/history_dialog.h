#pragma once
// "Frühere Konfiguration…": the connected controller's kept images, newest first, each with
// its date, firmware and in words what differs from the image read at this connect. "Öffnen"
// takes the chosen one to the configuration editor.
#include "app/config_words.h"
#include "ui_history_dialog.h"

#include <QDialog>

#include <vector>

namespace veltro {

class HistoryDialog : public QDialog, public Ui::HistoryDialog {
    Q_OBJECT
public:
    HistoryDialog(std::vector<EarlierConfiguration> choices, QWidget* parent = nullptr);

signals:
    void chosen(const QString& imageFile);

private:
    std::vector<EarlierConfiguration> choices_;
};

} // namespace veltro
