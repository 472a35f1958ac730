// The demo end to end as far as the configuration editor: connect to the demo's controller,
// keep its image under the serial number, and open it against the demo program folder.
#include "app/demo.h"
#include "device/identify.h"
#include "editor/catalogue.h"
#include "editor/codec.h"
#include "editor/config_image.h"
#include "editor/vehicle_image.h"
#include "platform/qt_serial_link.h"
#include "recording_reporter.h"
#include "sim_ports.h"
#include "test_files.h"

#include <QTest>

#include <functional>
#include <memory>

using namespace veltro;
using namespace veltro::test;

using Shown = std::function<QString()>;
Q_DECLARE_METATYPE(Shown)

class TestDemo : public QObject {
    Q_OBJECT

    std::unique_ptr<SimPorts> ports_;
    std::unique_ptr<DemoSetup> demo_;
    Bytes file_;                       // the saved image
    ImageReading reading_;
    int controllerType_ = -1;
    std::vector<CatalogueEntry> catalogue_;
    VehicleDescription vehicle_;

    // What a list of the editor preselects: the entry's name, or "no selection".
    template <class Entries>
    static QString selected(const Entries& entries, int index)
    {
        return index < 0 ? QString("no selection") : windows1252ToQString(entries[std::size_t(index)].name);
    }
    QString displayLine(int k) const
    {
        return selected(vehicle_.displayValues,
                        matchingDisplayValue(vehicle_, reading_.rows[std::size_t(displayLineSlot(k))]));
    }

private slots:
    void initTestCase()
    {
        ports_ = std::make_unique<SimPorts>(); // the program folder, no machine ports
        demo_ = std::make_unique<DemoSetup>();
        QtSerialLink link(demo_->ptyPath());
        RecordingReporter reporter;
        const ConnectResult r = runConnect(link, reporter);
        QVERIFY(r.currentLayout);
        QCOMPARE(r.layoutByte(), 181);
        const std::string saved = saveImageFile(demo_->programFolder(), r.serial, r.image);
        QVERIFY(!saved.empty());
        const QByteArray bytes = readFile(QString::fromStdString(saved));
        file_.assign(bytes.begin(), bytes.end());
        reading_ = readImageFile(saved);
        controllerType_ = r.controllerType();

        catalogue_ = readCatalogue(demo_->programFolder() + "/vehicles.inc");
        QVERIFY(controllerType_ >= 0 && controllerType_ < int(catalogue_.size()));
        vehicle_ = loadVehicleData(demo_->programFolder() + "/" + catalogue_[std::size_t(controllerType_)].dataFile);
        QVERIFY(!vehicle_.displayValues.empty());
    }

    void cleanupTestCase()
    {
        demo_.reset();
        ports_.reset();
    }

    // Each choice the editor opens with, as it shows it.
    void editorOpensWith_data()
    {
        QTest::addColumn<Shown>("shown");
        QTest::addColumn<QString>("expected");
        QTest::newRow("vehicle") << Shown([this] {
            return QString::fromStdString(catalogue_[std::size_t(controllerType_)].name);
        }) << "Norrik Traktor NT 120 (ab 2016)";
        const QString lines[kDisplayLineCount] = {"Motordrehzahl",        "Kühlwassertemperatur",
                                                  "Zapfwellendrehzahl",   "Hydrauliköltemperatur",
                                                  "AdBlue Füllstand",     "Batteriespannung"};
        for (int k = 0; k < kDisplayLineCount; ++k)
            QTest::addRow("display line %d", k + 1) << Shown([this, k] { return displayLine(k); }) << lines[k];
        QTest::newRow("switch input") << Shown([this] {
            return selected(vehicle_.switches, matchingSwitch(vehicle_, reading_.rows[8]));
        }) << "Arbeitsscheinwerfer";
        QTest::newRow("option bits 0 1 2") << Shown([this] {
            return QString("%1 %2 %3").arg(reading_.flag(0)).arg(reading_.flag(1)).arg(reading_.flag(2));
        }) << "1 1 0";
        QTest::newRow("threshold") << Shown([this] {
            return QString::fromStdString(thresholdText(reading_.threshold, ','));
        }) << "11,5";
        QTest::newRow("speed") << Shown([this] {
            return QString::fromStdString(speedNames().at(std::size_t(speedIndex(reading_.speed))));
        }) << "SCHNELL";
        QTest::newRow("switching") << Shown([this] {
            return QString::fromStdString(switchingNames().at(std::size_t(switchingIndex(reading_.switching))));
        }) << "Nach 5 Sekunden umschalten";
    }
    void editorOpensWith()
    {
        QFETCH(Shown, shown);
        QFETCH(QString, expected);
        QCOMPARE(shown(), expected);
    }

    // Saving those choices unchanged gives the controller's configuration bytes back: records B,
    // the KLEMME15 and FELDREGENERATION slots, values X and Y and the line texts included.
    void savedUnchangedIsTheSame()
    {
        EditorChoice choice;
        for (int k = 0; k < kDisplayLineCount; ++k)
            choice.displayLines[std::size_t(k)] =
                matchingDisplayValue(vehicle_, reading_.rows[std::size_t(displayLineSlot(k))]);
        choice.switchInput = matchingSwitch(vehicle_, reading_.rows[8]);
        for (int index : choice.displayLines)
            QVERIFY(index >= 0);
        QVERIFY(choice.switchInput >= 0);
        choice.options = {reading_.flag(0), reading_.flag(1), reading_.flag(2)};
        choice.threshold = thresholdText(reading_.threshold, ',');
        choice.speed = speedIndex(reading_.speed);
        choice.switching = switchingIndex(reading_.switching);
        Bytes written;
        writeImage(written, VehicleImageSource(vehicle_, choice, ','));
        constexpr std::size_t configuration = 1008; // the identification bytes follow
        QVERIFY(file_.size() > configuration);
        const auto hex = [](const Bytes& bytes) {
            return QByteArray(reinterpret_cast<const char*>(bytes.data()), qsizetype(configuration)).toHex(' ');
        };
        QCOMPARE(hex(file_), hex(written));
    }
};

QTEST_GUILESS_MAIN(TestDemo)
#include "test_demo.moc"
