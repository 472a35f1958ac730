#include "editor/config_image.h"
#include "util/runtime_error.h"

#include "test_files.h"

#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

namespace {

// An image whose every field has its own recognisable bytes.
ConfigImage sampleImage()
{
    ConfigImage image;
    for (int slot = 0; slot < kSlotCount; ++slot) {
        image.recordA[slot].fill(std::uint8_t(0xA0 + slot));
        image.recordB[slot].fill(std::uint8_t(0xB0 + slot));
        image.valueX[slot] = std::uint8_t(0x10 + slot);
        image.valueY[slot] = std::uint8_t(0x20 + slot);
    }
    image.switchA.fill(0xCA);
    image.switchB.fill(0xCB);
    image.flags = 0x05;
    image.threshold = 168;
    image.speed = 4;
    image.switching = 30;
    image.texts = {"LINE1txt", "LINE2txt", "LINE3txt", "LINE4txt", "LINE5txt", "LINE6txt"};
    return image;
}

QByteArray ff(int count) { return QByteArray(count, '\xFF'); }

// Records of eight equal bytes: first, first + 1, ...
QByteArray records(int first, int count)
{
    QByteArray bytes;
    for (int i = 0; i < count; ++i)
        bytes += QByteArray(8, char(first + i));
    return bytes;
}

QByteArray written(const ConfigImage& image)
{
    Bytes file;
    writeImage(file, image);
    return QByteArray(reinterpret_cast<const char*>(file.data()), qsizetype(file.size()));
}

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
    // Every field and every fixed byte of a freshly written image, by offset. Eight text bytes
    // fill a line; a longer text runs on until the next line's own text covers it.
    void savedLayout_data()
    {
        QTest::addColumn<QStringList>("texts"); // none: the sample's
        QTest::addColumn<int>("offset");
        QTest::addColumn<QByteArray>("bytes");
        const QStringList sample;
        QTest::newRow("records A, KLEMME15 in 1, FELDREGENERATION in 2") << sample << 0 << records(0xA0, 8);
        QTest::newRow("records B") << sample << 64 << records(0xB0, 8);
        QTest::newRow("flags, unused, threshold") << sample << 128 << QByteArray("\x05") + ff(7) + QByteArray("\xA8");
        QTest::newRow("values X, slots 1 and 2 are FF") << sample << 137 << QByteArray("\x10\xFF\xFF\x13\x14\x15\x16\x17");
        QTest::newRow("values Y, slots 1 and 2 are FF") << sample << 145 << QByteArray("\x20\xFF\xFF\x23\x24\x25\x26\x27");
        QTest::newRow("speed, switching, fill") << sample << 153 << QByteArray("\x04\x1E\xFF");
        QTest::newRow("unused up to the texts") << sample << 155 << ff(512 - 155);
        QTest::newRow("texts") << sample << 512 << QByteArray("LINE1txtLINE2txtLINE3txtLINE4txtLINE5txtLINE6txt");
        QTest::newRow("unused after the texts") << sample << 560 << ff(928 - 560);
        QTest::newRow("switch records") << sample << 928 << records(0xCA, 2);
        QTest::newRow("identification bytes FF, then 00") << sample << 944 << ff(1022 - 944) + QByteArray(1, '\0');
        QTest::newRow("short text leaves FF")
            << QStringList{"AB", "CDEFGHIJ", "", "", "", ""} << 512 << QByteArray("AB\xFF\xFF\xFF\xFF\xFF\xFF" "CDEFGHIJ");
        QTest::newRow("long text covered by the next")
            << QStringList{"0123456789", "abcdefgh", "", "", "", ""} << 512 << QByteArray("01234567abcdefgh");
        QTest::newRow("long text past a short next")
            << QStringList{"0123456789AB", "xy", "", "", "", ""} << 512 << QByteArray("01234567xyAB\xFF\xFF\xFF\xFF");
        QTest::newRow("sixth text runs past 559")
            << QStringList{"", "", "", "", "", "ABCDEFGHIJKL"} << 552 << QByteArray("ABCDEFGHIJKL\xFF");
    }
    void savedLayout()
    {
        QFETCH(QStringList, texts);
        QFETCH(int, offset);
        QFETCH(QByteArray, bytes);
        ConfigImage image = sampleImage();
        for (int k = 0; k < texts.size(); ++k)
            image.texts[k] = texts[k].toStdString();
        const QByteArray file = written(image);
        QCOMPARE(file.size(), qsizetype(kImageSize));
        QCOMPARE(file.mid(offset, bytes.size()).toHex(' '), bytes.toHex(' '));
    }

    // What the start-up reads, including bytes the editor never writes (erased, zero, none).
    void readImageFile_data()
    {
        QTest::addColumn<QByteArray>("content"); // "none": no file
        QTest::addColumn<QString>("read"); // row 0, flags, speed and switching bytes -> their list indices; empty: error 9
        QTest::newRow("written") << written(sampleImage()) << "A0xA0xA0xA0xA0xA0xA0xA0 5 4 30 -> 3 30";
        QTest::newRow("no file") << QByteArray("none") << "00x00x00x00x00x00x00x00 0 0 0 -> -1 0";
        QTest::newRow("ends at the flags") << QByteArray(128, '\x01') + "\x07" << "01x01x01x01x01x01x01x01 7 0 0 -> -1 0";
        QTest::newRow("erased, 2000 bytes") << ff(2000) << "FFxFFxFFxFFxFFxFFxFFxFF 255 255 255 -> 0 0";
        QTest::newRow("2001 bytes") << ff(2001) << "";
    }
    void readImageFile()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, read);
        QTemporaryDir dir;
        const QString path = dir.filePath("0011AABB.eep");
        const bool exists = content != "none";
        if (exists)
            QVERIFY(writeFile(path, content));
        ImageReading r;
        QCOMPARE(orError([&] { r = veltro::readImageFile(path.toStdString()); return 0; }), read.isEmpty() ? -9 : 0);
        QVERIFY(QFileInfo::exists(path));
        QCOMPARE(readFile(path), exists ? content : QByteArray());
        QCOMPARE(r.rows[0].empty(), read.isEmpty());
        if (read.isEmpty())
            return;
        QCOMPARE(QString("%1 %2 %3 %4 -> %5 %6").arg(QString::fromStdString(r.rows[0])).arg(r.flags).arg(r.speed)
                     .arg(r.switching).arg(speedIndex(r.speed)).arg(switchingIndex(r.switching)), read);
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
