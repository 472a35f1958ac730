#include "device/device_info.h"
#include "device/identify.h"
#include "device/self_update.h"
#include "util/runtime_error.h"

#include <QTest>

using namespace veltro;

// Texts the controller's data turn into, and the reading of the server's version file.
class TestDeviceInfo : public QObject {
    Q_OBJECT
private slots:
    // `error`: the run-time error number raised instead of a text (0: none).
    void tooltip_data()
    {
        QTest::addColumn<QString>("serial");
        QTest::addColumn<QString>("btversion");
        QTest::addColumn<QString>("date");
        QTest::addColumn<QString>("level");
        QTest::addColumn<int>("error");
        QTest::newRow("example") << "0F0B1703" << "180" << "15.11.23" << "HB4" << 0;
        QTest::newRow("day 5 without zero") << "050B1703" << "180" << "5.11.23" << "HB4" << 0;
        QTest::newRow("build level 7") << "0F0B1703" << "7" << "15.11.23" << "H07" << 0;
        QTest::newRow("non-hex pair reads as far as digits go") << "1Z0B1703" << "255" << "1.11.23" << "HFF" << 0;
        QTest::newRow("recovery number, short") << "12" << "0" << "18.0.0" << "H00" << 0;
        QTest::newRow("build level does not fit a byte") << "drgdf" << "65535" << "" << "" << 6;
        QTest::newRow("build level not a number") << "0F0B1703" << "B4" << "" << "" << 13;
    }
    void tooltip()
    {
        QFETCH(QString, serial);
        QFETCH(QString, btversion);
        QFETCH(QString, date);
        QFETCH(QString, level);
        QFETCH(int, error);
        try {
            QCOMPARE(QString::fromStdString(deviceInfoTooltip(serial.toStdString(), btversion.toStdString())),
                     "Herstellungsdatum des VELTRO Interfaces: " + date + "! Das Gerät wurde in der Ausbaustufe "
                         + level + " ausgeliefert!");
            QCOMPARE(error, 0);
        } catch (const RuntimeError& e) {
            QCOMPARE(e.number(), error);
        }
    }

    // The server's version file against the tool's version "5"; `shown` is empty when nothing
    // is offered.
    void selfUpdateDecision_data()
    {
        QTest::addColumn<QString>("reply");
        QTest::addColumn<QString>("shown");
        QTest::newRow("newer, line end and more fields") << "6,1.06,x\r\n" << "1.06";
        QTest::newRow("equal") << "5,1.05" << "";
        QTest::newRow("no second field") << "6" << "";
        QTest::newRow("not a number") << "neu,1.06" << "";
    }
    void selfUpdateDecision()
    {
        QFETCH(QString, reply);
        QFETCH(QString, shown);
        const auto offer = selfUpdateOfferFrom(reply.toStdString(), "5");
        QCOMPARE(offer ? QString::fromStdString(offer->versionText) : QString(), shown);
        QCOMPARE(offer.has_value(), !shown.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestDeviceInfo)
#include "test_device_info.moc"
