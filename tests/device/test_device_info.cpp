#include "device/device_info.h"
#include "device/identify.h"
#include "device/readout.h"
#include "device/self_update.h"
#include "util/runtime_error.h"

#include <QTest>

using namespace veltro;

// Texts the controller's data turn into: tooltips, readout values, the self-update decision.
class TestDeviceInfo : public QObject {
    Q_OBJECT
private slots:
    void tooltip_data()
    {
        QTest::addColumn<QString>("serial");
        QTest::addColumn<QString>("btversion");
        QTest::addColumn<QString>("date");
        QTest::addColumn<QString>("level");
        QTest::newRow("example") << "0F0B1703" << "180" << "15.11.23" << "HB4";
        QTest::newRow("day 5 without zero") << "050B1703" << "180" << "5.11.23" << "HB4";
        QTest::newRow("build level 7") << "0F0B1703" << "7" << "15.11.23" << "H07";
        QTest::newRow("non-hex pair reads as far as digits go") << "0FZ21703" << "180" << "15.0.23" << "HB4";
        QTest::newRow("second digit not hex") << "1Z0B1703" << "255" << "1.11.23" << "HFF";
        QTest::newRow("recovery number, short") << "12" << "0" << "18.0.0" << "H00";
    }
    void tooltip()
    {
        QFETCH(QString, serial);
        QFETCH(QString, btversion);
        QFETCH(QString, date);
        QFETCH(QString, level);
        QCOMPARE(QString::fromStdString(deviceInfoTooltip(serial.toStdString(), btversion.toStdString())),
                 "Herstellungsdatum des VELTRO Interfaces: " + date + "! Das Gerät wurde in der Ausbaustufe "
                     + level + " ausgeliefert!");
    }

    void tooltipBeforeConnect()
    {
        // The design-time layout byte does not fit a byte.
        try {
            deviceInfoTooltip("drgdf", "65535");
            QFAIL("no overflow");
        } catch (const RuntimeError& e) {
            QCOMPARE(e.number(), 6);
        }
    }

    void dataBlockTexts()
    {
        Bytes block(129, 0);
        block[0] = 223;
        block[1] = 11;
        block[2] = 5;
        block[3] = 0x0A;
        block[6] = 0x3C;
        block[7] = 0;
        QCOMPARE(QString::fromStdString(dataBlockDate(block)), QString("Herstellungsdatum des Gerätes: 5.11.2023"));
        QCOMPARE(QString::fromStdString(dataBlockLambda(block)), QString("Lambda-CAL: &H003C"));
        QCOMPARE(QString::fromStdString(dataBlockPasswortcal(block)), QString::number(0x0A + 256 * 5 + 65536 * 223));

        Bytes serial(129, 0);
        serial[3] = 0x0A;
        serial[2] = 0x01;
        serial[1] = 0x00;
        serial[0] = 0xFF;
        QCOMPARE(QString::fromStdString(dataBlockSerial(serial)), QString("A10FF"));

        serial[7] = 0x1B;
        serial[6] = 0x05;
        QCOMPARE(QString::fromStdString(dataBlockLambda(serial)), QString("Lambda-CAL: &H1B5"));
    }

    void serialFromLabelCaption()
    {
        QCOMPARE(QString::fromStdString(serialFromLabel("SERIENNUMMER: 1A2B3C4D")), QString("1A2B3C4D"));
        QCOMPARE(QString::fromStdString(serialFromLabel("SERIENNUMMER: ")), QString());
    }

    void olderLayoutCaption()
    {
        QCOMPARE(QString::fromStdString(olderFirmwareCaption(7)), QString("FIRMWARE V1.07"));
        QCOMPARE(QString::fromStdString(olderFirmwareCaption(66)), QString("FIRMWARE V1.66"));
        QCOMPARE(QString::fromStdString(firmwareInfoPath("3", "180")), QString("/fwupdate/VELTRO_3_180.txt"));
    }

    void selfUpdateDecision_data()
    {
        QTest::addColumn<QString>("reply");
        QTest::addColumn<QString>("local");
        QTest::addColumn<bool>("offered");
        QTest::addColumn<QString>("shown");
        QTest::newRow("newer") << "6,1.06" << "5" << true << "1.06";
        QTest::newRow("newer, line end and more fields") << "6,1.06,x\r\n" << "5" << true << "1.06";
        QTest::newRow("equal") << "5,1.05" << "5" << false << "";
        QTest::newRow("older") << "4,1.04" << "5" << false << "";
        QTest::newRow("number with trailing text") << "12abc,2.0" << "5" << true << "2.0";
        QTest::newRow("no second field") << "6" << "5" << false << "";
        QTest::newRow("empty reply") << "" << "5" << false << "";
        QTest::newRow("not a number") << "neu,1.06" << "5" << false << "";
    }
    void selfUpdateDecision()
    {
        QFETCH(QString, reply);
        QFETCH(QString, local);
        QFETCH(bool, offered);
        QFETCH(QString, shown);
        const auto offer = selfUpdateOfferFrom(reply.toStdString(), local.toStdString());
        QCOMPARE(offer.has_value(), offered);
        if (offer)
            QCOMPARE(QString::fromStdString(offer->versionText), shown);
        QCOMPARE(QString::fromStdString(selfUpdateQuestion("1.06")),
                 QString("Auf dem Server befindet sich Softwareversion 1.06. Soll die aktuelle Version "
                         "runtergeladen und installiert werden?"));
    }
};

QTEST_APPLESS_MAIN(TestDeviceInfo)
#include "test_device_info.moc"
