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
    // The tooltip's date and build level, or the run-time error number raised instead (0: none).
    void tooltip_data()
    {
        QTest::addColumn<QStringList>("in");  // serial, btversion
        QTest::addColumn<QStringList>("out"); // date, level; or the error number
        QTest::newRow("example") << QStringList{"0F0B1703", "180"} << QStringList{"15.11.23", "HB4"};
        QTest::newRow("day 5 without zero") << QStringList{"050B1703", "180"} << QStringList{"5.11.23", "HB4"};
        QTest::newRow("build level 7") << QStringList{"0F0B1703", "7"} << QStringList{"15.11.23", "H07"};
        QTest::newRow("non-hex pair reads as far as digits go") << QStringList{"1Z0B1703", "255"} << QStringList{"1.11.23", "HFF"};
        QTest::newRow("recovery number, short") << QStringList{"12", "0"} << QStringList{"18.0.0", "H00"};
        QTest::newRow("build level does not fit a byte") << QStringList{"drgdf", "65535"} << QStringList{"6"};
        QTest::newRow("build level just past a byte") << QStringList{"0F0B1703", "256"} << QStringList{"6"};
        QTest::newRow("build level not a number") << QStringList{"0F0B1703", "B4"} << QStringList{"13"};
    }
    void tooltip()
    {
        QFETCH(QStringList, in);
        QFETCH(QStringList, out);
        try {
            QCOMPARE(QString::fromStdString(deviceInfoTooltip(in[0].toStdString(), in[1].toStdString())),
                     "Herstellungsdatum des VELTRO Interfaces: " + out.value(0) + "! Das Gerät wurde in der Ausbaustufe "
                         + out.value(1) + " ausgeliefert!");
            QCOMPARE(out.size(), 2);
        } catch (const RuntimeError& e) {
            QCOMPARE(QString::number(e.number()), out.value(0));
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
