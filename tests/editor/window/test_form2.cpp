// The editor window as it opens, before any file is read: its controls, captions and what a
// screen reader finds of them.
#include "editor/window/form2.h"
#include "util/twips.h"

#include "accessible_tree.h"

#include <QAccessible>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

class TestForm2 : public QObject {
    Q_OBJECT
private slots:
    // The editor is a window to a screen reader (not a bare pane), named by its caption, made as
    // the main window makes it.
    void windowForScreenReaders()
    {
        Form2 form({}, {}, nullptr);
        form.show();
        QAccessibleInterface* window = QAccessible::queryAccessibleInterface(&form);
        QCOMPARE(window->role(), QAccessible::Window);
        QCOMPARE(window->text(QAccessible::Name), QString("VELTRO KONFIGURATION"));
    }

    // Every control is found by its caption, and the lists, the voltage and the switch, speed
    // and switching lists are captioned by their labels.
    void controlsByCaption()
    {
        Form2 form({}, {}, nullptr);
        form.show();
        const auto controls = accessibleControls(&form);
        QList<QPair<QAccessible::Role, QString>> expected{
            {QAccessible::Grouping, "Fahrzeugauswahl"},
            {QAccessible::ComboBox, "Fahrzeugauswahl"},
            {QAccessible::Button, "LADEN!"},
            {QAccessible::Grouping, "Konfiguration"},
            {QAccessible::StaticText, "Messwerte-Auswahl:"},
            {QAccessible::StaticText, "Schalter-Auswahl:"},
            {QAccessible::StaticText, "Anzeige-Geschwindigkeit:"},
            {QAccessible::StaticText, "Automatisch umschalten:"},
            {QAccessible::StaticText, "Batteriespannung:"},
            {QAccessible::StaticText, "Warnung bei Spannung <:"},
            {QAccessible::ComboBox, "Schalter-Auswahl"},
            {QAccessible::ComboBox, "Anzeige-Geschwindigkeit"},
            {QAccessible::ComboBox, "Automatisch umschalten"},
            {QAccessible::EditableText, "Warnung bei Spannung <"},
            {QAccessible::CheckBox, QString::fromUtf8("Anzeige \"bei Z\xc3\xbcndung aus\" aktiv")},
            {QAccessible::CheckBox, "Warnung Unterspannung aktiv"},
            {QAccessible::CheckBox, "Sleepmodus nach 24h aktivieren (Strom sparen)"},
            {QAccessible::Button, "Speichern und auf VELTRO laden!"},
            {QAccessible::Button, "Command4"}};
        for (int line = 1; line <= kDisplayLineCount; ++line)
            expected.append({QAccessible::ComboBox, QString("Messwerte-Auswahl Zeile %1").arg(line)});
        for (const auto& [role, name] : expected)
            QVERIFY2(controls.contains({int(role), name}), qPrintable(name));

        QCOMPARE(accessibleCaption(form.displayzeile[kSwitchList]), QString("Schalter-Auswahl:"));
        QCOMPARE(accessibleCaption(form.displayzeile[kSpeedList]), QString("Anzeige-Geschwindigkeit:"));
        QCOMPARE(accessibleCaption(form.displayzeile[kSwitchingList]), QString("Automatisch umschalten:"));
        QCOMPARE(accessibleCaption(form.batteriespannung), QString("Warnung bei Spannung <:"));
    }

    // Before "LADEN!" the window is the vehicle selection only; the lists and options by number
    // are the controls of that name.
    void opening()
    {
        Form2 form({}, {}, nullptr);
        QCOMPARE(form.objectName(), QString("Form2"));
        QVERIFY(form.isWindow());
        QVERIFY(form.Frame2->isHidden());
        QCOMPARE(form.size(), QSize(tw(9600), tw(kEditorHeightVehicle)));
        QCOMPARE(form.batteriespannung->text(), QString("11,5"));
        for (int k = 0; k < kEditorListCount; ++k)
            QCOMPARE(form.displayzeile[std::size_t(k)]->objectName(), QString("displayzeile_%1").arg(k));
        for (int i = 0; i < 3; ++i)
            QCOMPARE(form.Check1[std::size_t(i)]->objectName(), QString("Check1_%1").arg(i));
    }
};

QTEST_MAIN(TestForm2)
#include "test_form2.moc"
