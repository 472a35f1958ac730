#include "editor/config_image.h"
#include "util/runtime_error.h"

#include "test_files.h"

#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

namespace {

// The call's result, or minus the number of the runtime error it raised.
template <class Call>
int orError(Call call)
{
    try {
        return int(call());
    } catch (const RuntimeError& e) {
        return -e.number();
    }
}

} // namespace

class TestConfigImage : public QObject {
    Q_OBJECT
private slots:
    // The start-up reading where the fuzz model of the image leaves off: a missing file is
    // created empty and reads as zeros; a file past the reader's 2000 bytes is refused (9) and
    // left as it was.
    void readImageFile()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("0011AABB.eep");
        ImageReading r = veltro::readImageFile(path.toStdString());
        QVERIFY(QFileInfo::exists(path) && QFileInfo(path).size() == 0);
        QCOMPARE(QString::fromStdString(r.rows[0]) + QString(" %1 %2").arg(r.speed).arg(r.switching),
                 QString("00x00x00x00x00x00x00x00 0 0"));
        QVERIFY(writeFile(path, QByteArray(2001, '\xFF')));
        QCOMPARE(orError([&] { r = veltro::readImageFile(path.toStdString()); return 0; }), -9);
        QCOMPARE(readFile(path), QByteArray(2001, '\xFF'));
    }

    // Entered texts and list choices to bytes. A threshold is stored as round((V - 0.9) / 0.063)
    // and shown with one decimal, both with halves to even.
    void conversions_data()
    {
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("expected"); // a runtime error as minus its number
        QTest::addColumn<QString>("shown"); // the threshold byte as shown
        const auto threshold = [](const char* text) { return orError([=] { return thresholdByte(text, ','); }); };
        QTest::newRow("11,5") << threshold("11,5") << 168 << "11,5";
        QTest::newRow("blanks around 10") << threshold(" 10 ") << 144 << "10,0";
        QTest::newRow("16,96 rounds to 255") << threshold("16,96") << 255 << "17,0";
        QTest::newRow("quotient 4.5 stored as 4") << threshold("1,1835") << 4 << "1,2";
        QTest::newRow("quotient 7.5 stored as 8") << threshold("1,3725") << 8 << "1,4";
        QTest::newRow("4.050 V shown as 4,0") << threshold("4,05") << 50 << "4,0";
        QTest::newRow("10.350 V shown as 10,4") << threshold("10,35") << 150 << "10,4";
        QTest::newRow("17 V overflows") << threshold("17") << -6 << "";
        QTest::newRow("point is no separator here") << threshold("11.5") << -13 << "";
        QTest::newRow("value in hex") << orError([] { return valueByte("0A"); }) << -13 << "";
        QTest::newRow("speed byte 5") << orError([] { return speedIndex(5); }) << -380 << "";
        QTest::newRow("switching byte 31") << orError([] { return switchingIndex(31); }) << -380 << "";
        QTest::newRow("no speed chosen") << orError([] { return speedValue(-1); }) << -380 << "";
    }
    void conversions()
    {
        QFETCH(int, result);
        QFETCH(int, expected);
        QFETCH(QString, shown);
        QCOMPARE(result, expected);
        if (shown.isEmpty())
            return;
        QCOMPARE(QString::fromStdString(thresholdText(std::uint8_t(result), ',')), shown);
        QCOMPARE(QString::fromStdString(thresholdText(std::uint8_t(result), '.')), shown.replace(',', '.'));
    }
};

QTEST_GUILESS_MAIN(TestConfigImage)
#include "test_config_image.moc"
