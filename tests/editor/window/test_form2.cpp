// The editor window as it opens, before any file is read: its controls, captions and what a
// screen reader finds of them.
#include "editor/demo_catalogue.h"
#include "editor/window/form2.h"

#include "accessible_tree.h"
#include "test_files.h"

#include <QAccessible>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

class TestForm2 : public QObject {
    Q_OBJECT
private slots:
    // The editor is a window to a screen reader (not a bare pane), named by its caption; every
    // control is found by its caption, and the lists and the voltage are captioned by their labels.
    void controlsByCaption()
    {
        Form2 form({}, {}, nullptr);
        form.show();
        QVERIFY(accessibleControls(&form).contains({int(QAccessible::Window), "VELTRO KONFIGURATION"}));
        QCOMPARE(controlsWithoutCaption(&form), QString());
        QVERIFY(accessibleControls(&form).contains({int(QAccessible::ComboBox), "Messwerte-Auswahl Zeile 6"}));

        QCOMPARE(accessibleCaption(form.displayzeile[kSwitchList]), QString("Schalter-Auswahl:"));
        QCOMPARE(accessibleCaption(form.displayzeile[kSpeedList]), QString("Anzeige-Geschwindigkeit:"));
        QCOMPARE(accessibleCaption(form.displayzeile[kSwitchingList]), QString("Automatisch umschalten:"));
        QCOMPARE(accessibleCaption(form.batteriespannung), QString("Warnung bei Spannung <:"));
    }

    // The window shows what the editor logic allows: on a controller older than layout 181 the
    // display lists and the threshold are locked, from 181 on they are open.
    void layoutLocksControls()
    {
        for (const QString layout : {"180", "181"}) {
            QTemporaryDir folder;
            QVERIFY(installDemoCatalogue(demoCatalogueDir(), folder.path().toStdString()) > 0);
            QVERIFY(writeFile(folder.path() + "/1A2B3C4D.eep", QByteArray()));
            Form2 form(folder.path().toStdString(), {"1", "1A2B3C4D", layout.toStdString()}, nullptr);
            form.Form_Load();
            for (int k = 0; k < kDisplayLineCount; ++k)
                QCOMPARE(form.displayzeile[std::size_t(k)]->isEnabled(), layout == "181");
            QCOMPARE(form.batteriespannung->isEnabled(), layout == "181");
        }
    }
};

QTEST_MAIN(TestForm2)
#include "test_form2.moc"
