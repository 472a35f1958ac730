// Qt's own dialogs speak German once the tool has installed Qt's German translation, and stay
// usable in English when the translation is missing.
#include "app/translations.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;

class TestTranslations : public QObject {
    Q_OBJECT
private slots:
    void germanButtons()
    {
        QMessageBox box(QMessageBox::Question, "Firmware", "Firmware aktualisieren?", QMessageBox::Yes | QMessageBox::No);
        const auto yesNo = [&box] {
            return box.button(QMessageBox::Yes)->text().remove('&') + "/" + box.button(QMessageBox::No)->text().remove('&');
        };
        QTemporaryDir empty;
        QVERIFY(!installQtGermanTranslation(empty.path()));
        QCOMPARE(yesNo(), QString("Yes/No"));

        QVERIFY2(installQtGermanTranslation(), "qtbase_de.qm not found in Qt's translation folder (package qt6-translations-l10n)");
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No); // buttons made after the install
        QCOMPARE(yesNo(), QString("Ja/Nein"));
        QInputDialog input;
        QFileDialog files;
        files.setOption(QFileDialog::DontUseNativeDialog);
        for (QDialog* dialog : {static_cast<QDialog*>(&input), static_cast<QDialog*>(&files)}) {
            dialog->show();
            QCOMPARE(dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Cancel)->text().remove('&'),
                     QString("Abbrechen"));
        }
    }
};

QTEST_MAIN(TestTranslations)
#include "test_translations.moc"
