#include "editor/config_image.h"
#include "util/runtime_error.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace veltro;

namespace {

// An image whose every field has its own recognisable bytes.
ConfigImage sampleImage()
{
    ConfigImage image;
    for (int slot = 0; slot < kSlotCount; ++slot) {
        for (int i = 0; i < 8; ++i) {
            image.recordA[slot][i] = std::uint8_t(0xA0 + slot);
            image.recordB[slot][i] = std::uint8_t(0xB0 + slot);
        }
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

QByteArray repeated(int count, char c) { return QByteArray(count, c); }

QByteArray toQ(const Bytes& b) { return QByteArray(reinterpret_cast<const char*>(b.data()), qsizetype(b.size())); }

Bytes fromQ(const QByteArray& q) { return Bytes(q.begin(), q.end()); }

Bytes written(const ConfigImage& image, Bytes file = {})
{
    writeImage(file, image);
    return file;
}

int errorNumber(const std::function<void()>& call)
{
    try {
        call();
    } catch (const RuntimeError& e) {
        return e.number();
    }
    return 0;
}

} // namespace

class TestConfigImage : public QObject {
    Q_OBJECT
private slots:
    // Every field and every fixed byte of a freshly written image, by offset.
    void savedLayout_data()
    {
        QTest::addColumn<int>("offset");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("slot 0 record A") << 0 << repeated(8, '\xA0');
        QTest::newRow("KLEMME15 record A") << 8 << repeated(8, '\xA1');
        QTest::newRow("FELDREGENERATION record A") << 16 << repeated(8, '\xA2');
        QTest::newRow("slots 3..7 records A") << 24
            << repeated(8, '\xA3') + repeated(8, '\xA4') + repeated(8, '\xA5') + repeated(8, '\xA6') + repeated(8, '\xA7');
        QTest::newRow("slot 0 record B") << 64 << repeated(8, '\xB0');
        QTest::newRow("KLEMME15, FELDREGENERATION records B") << 72 << repeated(8, '\xB1') + repeated(8, '\xB2');
        QTest::newRow("slot 7 record B") << 120 << repeated(8, '\xB7');
        QTest::newRow("flags, unused, threshold") << 128 << QByteArray("\x05") + repeated(7, '\xFF') + QByteArray("\xA8");
        QTest::newRow("values X, slots 1 and 2 are FF") << 137 << QByteArray("\x10\xFF\xFF\x13\x14\x15\x16\x17");
        QTest::newRow("values Y, slots 1 and 2 are FF") << 145 << QByteArray("\x20\xFF\xFF\x23\x24\x25\x26\x27");
        QTest::newRow("speed, switching, fill") << 153 << QByteArray("\x04\x1E\xFF");
        QTest::newRow("unused up to the texts") << 155 << repeated(512 - 155, '\xFF');
        QTest::newRow("texts") << 512 << QByteArray("LINE1txtLINE2txtLINE3txtLINE4txtLINE5txtLINE6txt");
        QTest::newRow("unused after the texts") << 560 << repeated(928 - 560, '\xFF');
        QTest::newRow("switch records") << 928 << repeated(8, '\xCA') + repeated(8, '\xCB');
        QTest::newRow("unused, identification bytes included, then 00") << 944
            << repeated(1022 - 944, '\xFF') + QByteArray(1, '\0');
    }
    void savedLayout()
    {
        QFETCH(int, offset);
        QFETCH(QByteArray, bytes);
        const QByteArray file = toQ(written(sampleImage()));
        QCOMPARE(file.size(), qsizetype(kImageSize));
        QCOMPARE(file.mid(offset, bytes.size()).toHex(' '), bytes.toHex(' '));
    }

    // The writer never shortens a file and overwrites exactly 0..1022.
    void existingFile_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<int>("size");
        QTest::newRow("none") << QByteArray() << 1023;
        QTest::newRow("short") << repeated(10, '\x5A') << 1023;
        QTest::newRow("device image of 1026 bytes") << repeated(1026, '\x5A') << 1026;
        QTest::newRow("longer") << repeated(1500, '\x5A') << 1500;
    }
    void existingFile()
    {
        QFETCH(QByteArray, before);
        QFETCH(int, size);
        const QByteArray after = toQ(written(sampleImage(), fromQ(before)));
        QCOMPARE(after.size(), size);
        QCOMPARE(after.mid(0, 1023), toQ(written(sampleImage())));
        QCOMPARE(after.mid(1023), before.mid(1023));
    }

    // Texts of other lengths than eight, line by line: the next line covers an overlong text
    // only as far as its own text reaches.
    void texts_data()
    {
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<int>("offset");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("short text leaves FF")
            << QStringList{"AB", "CDEFGHIJ", "", "", "", ""} << 512 << QByteArray("AB\xFF\xFF\xFF\xFF\xFF\xFF" "CDEFGHIJ");
        QTest::newRow("long text covered by the next")
            << QStringList{"0123456789", "abcdefgh", "", "", "", ""} << 512 << QByteArray("01234567abcdefgh");
        QTest::newRow("long text shows past an empty next")
            << QStringList{"0123456789", "", "", "", "", ""} << 512 << QByteArray("0123456789\xFF\xFF\xFF\xFF\xFF\xFF");
        QTest::newRow("long text past a short next")
            << QStringList{"0123456789AB", "xy", "", "", "", ""} << 518 << QByteArray("67xyAB\xFF\xFF");
        QTest::newRow("sixth text runs past 559")
            << QStringList{"", "", "", "", "", "ABCDEFGHIJKL"} << 552 << QByteArray("ABCDEFGHIJKL\xFF");
        QTest::newRow("no texts") << QStringList{"", "", "", "", "", ""} << 512 << repeated(48, '\xFF');
    }
    void texts()
    {
        QFETCH(QStringList, texts);
        QFETCH(int, offset);
        QFETCH(QByteArray, bytes);
        ConfigImage image = sampleImage();
        for (int k = 0; k < kDisplayLineCount; ++k)
            image.texts[k] = texts[k].toStdString();
        const QByteArray file = toQ(written(image));
        QCOMPARE(file.size(), qsizetype(kImageSize));
        QCOMPARE(file.mid(offset, bytes.size()), bytes);
    }

    // What the start-up reads back from a written image, and from images the editor did not
    // write (erased EEPROM, an empty file).
    void readBack_data()
    {
        QTest::addColumn<int>("speed");
        QTest::addColumn<int>("switching");
        QTest::addColumn<int>("speedIndex");
        QTest::addColumn<int>("switchingIndex");
        QTest::newRow("LANGSAM, 30 s") << 4 << 30 << 3 << 30;
        QTest::newRow("SEHR SCHNELL, every second") << 1 << 1 << 0 << 1;
        QTest::newRow("erased EEPROM") << 255 << 255 << 0 << 0;
        QTest::newRow("zero bytes") << 0 << 0 << -1 << 0;
    }
    void readBack()
    {
        QFETCH(int, speed);
        QFETCH(int, switching);
        QFETCH(int, speedIndex);
        QFETCH(int, switchingIndex);
        ConfigImage image = sampleImage();
        image.speed = std::uint16_t(speed);
        image.switching = std::uint8_t(switching);
        const ImageReading reading = readImage(written(image));
        QCOMPARE(int(reading.speed), speed);
        QCOMPARE(int(reading.switching), switching);
        QCOMPARE(veltro::speedIndex(reading.speed), speedIndex);
        QCOMPARE(veltro::switchingIndex(reading.switching), switchingIndex);
        QCOMPARE(reading.rows[0], std::string("A0xA0xA0xA0xA0xA0xA0xA0"));
        QCOMPARE(reading.rows[3], std::string("A3xA3xA3xA3xA3xA3xA3xA3"));
        QCOMPARE(reading.rows[8], std::string("CAxCAxCAxCAxCAxCAxCAxCA"));
        QCOMPARE(reading.flag(0) + 2 * reading.flag(1) + 4 * reading.flag(2), 5);
    }

    void listIndexErrors_data()
    {
        QTest::addColumn<bool>("isSpeed");
        QTest::addColumn<int>("byte");
        QTest::addColumn<int>("error");
        QTest::newRow("speed 4") << true << 4 << 0;
        QTest::newRow("speed 5") << true << 5 << 380;
        QTest::newRow("speed 254") << true << 254 << 380;
        QTest::newRow("switching 30") << false << 30 << 0;
        QTest::newRow("switching 31") << false << 31 << 380;
        QTest::newRow("switching 254") << false << 254 << 380;
    }
    void listIndexErrors()
    {
        QFETCH(bool, isSpeed);
        QFETCH(int, byte);
        QFETCH(int, error);
        QCOMPARE(errorNumber([&] {
                     isSpeed ? speedIndex(std::uint8_t(byte)) : switchingIndex(std::uint8_t(byte));
                 }),
                 error);
    }

    // The list choices as bytes: "Keine Autoumschaltung" is 255, never 0.
    void listValues()
    {
        QCOMPARE(speedNames().size(), std::size_t(4));
        QCOMPARE(switchingNames().size(), std::size_t(31));
        QCOMPARE(switchingNames()[30], std::string("Nach 30 Sekunden umschalten"));
        QCOMPARE(int(switchingValue(0)), 255);
        QCOMPARE(int(switchingValue(1)), 1);
        QCOMPARE(int(switchingValue(30)), 30);
        QCOMPARE(int(speedValue(3)), 4);
        QCOMPARE(errorNumber([] { speedValue(-1); }), 380);
        QCOMPARE(errorNumber([] { switchingValue(-1); }), 380);
    }

    void readFile_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("row0");
        QTest::addColumn<int>("flags");
        QTest::newRow("no file") << false << QByteArray() << 0 << "00x00x00x00x00x00x00x00" << 0;
        QTest::newRow("empty file") << true << QByteArray() << 0 << "00x00x00x00x00x00x00x00" << 0;
        QTest::newRow("three bytes") << true << QByteArray("\x0A\x1B\x2C") << 0 << "0Ax1Bx2Cx00x00x00x00x00" << 0;
        QTest::newRow("ends after the flags") << true << repeated(128, '\x01') + QByteArray("\x07") << 0
            << "01x01x01x01x01x01x01x01" << 7;
        QTest::newRow("2000 bytes") << true << repeated(2000, '\xFF') << 0 << "FFxFFxFFxFFxFFxFFxFFxFF" << 255;
        QTest::newRow("2001 bytes") << true << repeated(2001, '\xFF') << 9 << "" << 0;
    }
    void readFile()
    {
        QFETCH(bool, exists);
        QFETCH(QByteArray, content);
        QFETCH(int, error);
        QFETCH(QString, row0);
        QFETCH(int, flags);
        QTemporaryDir dir;
        const QString path = dir.filePath("0011AABB.eep");
        if (exists) {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(content);
        }
        ImageReading reading;
        QCOMPARE(errorNumber([&] { reading = readImageFile(path.toStdString()); }), error);
        if (error)
            return;
        QVERIFY(QFile::exists(path));
        QCOMPARE(QFileInfo(path).size(), content.size());
        QCOMPARE(QString::fromStdString(reading.rows[0]), row0);
        QCOMPARE(int(reading.flags), flags);
        if (content.size() < 137)
            QCOMPARE(thresholdText(reading.threshold, ','), std::string("0,9"));
    }

    void thresholdShown_data()
    {
        QTest::addColumn<int>("byte");
        QTest::addColumn<QString>("text");
        QTest::newRow("168") << 168 << "11,5";
        QTest::newRow("145") << 145 << "10,0";
        QTest::newRow("144") << 144 << "10,0";
        QTest::newRow("0") << 0 << "0,9";
        QTest::newRow("255") << 255 << "17,0";
        QTest::newRow("200") << 200 << "13,5";
    }
    void thresholdShown()
    {
        QFETCH(int, byte);
        QFETCH(QString, text);
        QCOMPARE(QString::fromStdString(thresholdText(std::uint8_t(byte), ',')), text);
        QCOMPARE(QString::fromStdString(thresholdText(std::uint8_t(byte), '.')), QString(text).replace(',', '.'));
    }

    void thresholdStored_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("byte");
        QTest::addColumn<int>("error");
        QTest::newRow("11,5") << "11,5" << 168 << 0;
        QTest::newRow("10") << "10" << 144 << 0;
        QTest::newRow("13,5") << "13,5" << 200 << 0;
        QTest::newRow("0,9") << "0,9" << 0 << 0;
        QTest::newRow("0,87 rounds to 0") << "0,87" << 0 << 0;
        QTest::newRow("16,96 rounds to 255") << "16,96" << 255 << 0;
        QTest::newRow("17 overflows") << "17" << 0 << 6;
        QTest::newRow("0,8 overflows") << "0,8" << 0 << 6;
        QTest::newRow("negative") << "-3" << 0 << 6;
        QTest::newRow("blanks around") << " 12,0 " << 176 << 0;
        QTest::newRow("point is no separator here") << "11.5" << 0 << 13;
        QTest::newRow("letters") << "elf" << 0 << 13;
        QTest::newRow("empty") << "" << 0 << 13;
    }
    void thresholdStored()
    {
        QFETCH(QString, text);
        QFETCH(int, byte);
        QFETCH(int, error);
        std::uint8_t stored = 0;
        QCOMPARE(errorNumber([&] { stored = thresholdByte(text.toStdString(), ','); }), error);
        if (!error)
            QCOMPARE(int(stored), byte);
    }

    void valueBytes_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("byte");
        QTest::addColumn<int>("error");
        QTest::newRow("0") << "0" << 0 << 0;
        QTest::newRow("255") << "255" << 255 << 0;
        QTest::newRow("blanks") << " 12 " << 12 << 0;
        QTest::newRow("256") << "256" << 0 << 6;
        QTest::newRow("-1") << "-1" << 0 << 6;
        QTest::newRow("hex") << "0A" << 0 << 13;
        QTest::newRow("empty") << "" << 0 << 13;
    }
    void valueBytes()
    {
        QFETCH(QString, text);
        QFETCH(int, byte);
        QFETCH(int, error);
        std::uint8_t value = 0;
        QCOMPARE(errorNumber([&] { value = valueByte(text.toStdString()); }), error);
        if (!error)
            QCOMPARE(int(value), byte);
    }

    // A field that cannot be converted stops the write there; what was written stays in the
    // file, and a longer file keeps its tail.
    void partialWrite()
    {
        struct FailingThreshold : ConfigImageSource {
            using ConfigImageSource::ConfigImageSource;
            std::uint8_t threshold() const override { throw RuntimeError(ErrNo::Overflow); }
        };
        QTemporaryDir dir;
        const QString path = dir.filePath("0011AABB.eep");
        {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(repeated(1026, '\x5A'));
        }
        const ConfigImage image = sampleImage();
        QCOMPARE(errorNumber([&] { writeImageFile(path.toStdString(), FailingThreshold(image)); }), 6);
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray file = f.readAll();
        QCOMPARE(file.size(), 1026);
        QCOMPARE(file.mid(0, 8), repeated(8, '\xA0'));
        QCOMPARE(file.mid(928, 8), repeated(8, '\xCA'));
        QCOMPARE(file.mid(128, 1), QByteArray("\x05"));
        QCOMPARE(file.mid(136, 2), QByteArray("\xFF\xFF"));
        QCOMPARE(file.mid(512, 8), repeated(8, '\xFF'));
        QCOMPARE(file.mid(1022), QByteArray("\0\x5A\x5A\x5A", 4));
    }
};

QTEST_GUILESS_MAIN(TestConfigImage)
#include "test_config_image.moc"
