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
        const auto controls = accessibleControls(&form);
        QList<QPair<QAccessible::Role, QString>> expected{
            {QAccessible::Window, "VELTRO KONFIGURATION"}, {QAccessible::Grouping, "Fahrzeugauswahl"},
            {QAccessible::ComboBox, "Fahrzeugauswahl"}, {QAccessible::Button, "LADEN!"}, {QAccessible::Grouping, "Konfiguration"},
            {QAccessible::StaticText, "Messwerte-Auswahl:"}, {QAccessible::StaticText, "Schalter-Auswahl:"},
            {QAccessible::StaticText, "Anzeige-Geschwindigkeit:"}, {QAccessible::StaticText, "Automatisch umschalten:"},
            {QAccessible::StaticText, "Batteriespannung:"}, {QAccessible::StaticText, "Warnung bei Spannung <:"},
            {QAccessible::ComboBox, "Schalter-Auswahl"}, {QAccessible::ComboBox, "Anzeige-Geschwindigkeit"},
            {QAccessible::ComboBox, "Automatisch umschalten"}, {QAccessible::EditableText, "Warnung bei Spannung <"},
            {QAccessible::CheckBox, QString::fromUtf8("Anzeige \"bei Z\xc3\xbcndung aus\" aktiv")},
            {QAccessible::CheckBox, "Warnung Unterspannung aktiv"},
            {QAccessible::CheckBox, "Sleepmodus nach 24h aktivieren (Strom sparen)"},
            {QAccessible::Button, "Speichern und auf VELTRO laden!"}, {QAccessible::Button, "Command4"}};
        for (int line = 1; line <= kDisplayLineCount; ++line)
            expected.append({QAccessible::ComboBox, QString("Messwerte-Auswahl Zeile %1").arg(line)});
        for (const auto& [role, name] : expected)
            QVERIFY2(controls.contains({int(role), name}), qPrintable(name));

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
