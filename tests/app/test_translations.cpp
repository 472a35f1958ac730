#include "app/translations.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;

namespace {

// The text of one button of a freshly built standard dialog, without the mnemonic '&'.
QString buttonText(const QString& dialog, const QString& button)
{
    if (dialog == "message box") {
        QMessageBox box(QMessageBox::Question, "Firmware", "Firmware aktualisieren?", QMessageBox::Yes | QMessageBox::No);
        return box.button(button == "yes" ? QMessageBox::Yes : QMessageBox::No)->text().remove('&');
    }
    QInputDialog input;
    input.setLabelText("Seriennummer:");
    QFileDialog files;
    files.setOption(QFileDialog::DontUseNativeDialog);
    QDialog& shown = dialog == "input box" ? static_cast<QDialog&>(input) : files;
    shown.show();
    return shown.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Cancel)->text().remove('&');
}

} // namespace

// The slots run in order: first without any translation, then with Qt's German one.
class TestTranslations : public QObject {
    Q_OBJECT
private slots:
    // A folder without the translation: nothing is installed, the dialogs stay usable in English.
    void missingFile()
    {
        QTemporaryDir empty;
        QVERIFY(!installQtGermanTranslation(empty.path()));
        QCOMPARE(buttonText("message box", "yes"), QString("Yes"));
    }

    void germanButtons_data()
    {
        QTest::addColumn<QString>("dialog");
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("text");
        QTest::newRow("firmware question yes") << "message box" << "yes" << "Ja";
        QTest::newRow("firmware question no") << "message box" << "no" << "Nein";
        QTest::newRow("input box cancel") << "input box" << "cancel" << "Abbrechen";
        QTest::newRow("file dialog cancel") << "file dialog" << "cancel" << "Abbrechen";
    }
    void germanButtons()
    {
        QFETCH(QString, dialog);
        QFETCH(QString, button);
        QFETCH(QString, text);
        static const bool loaded = installQtGermanTranslation();
        QVERIFY2(loaded, "qtbase_de.qm not found in Qt's translation folder (package qt6-translations-l10n)");
        QCOMPARE(buttonText(dialog, button), text);
    }
};

QTEST_MAIN(TestTranslations)
#include "test_translations.moc"
