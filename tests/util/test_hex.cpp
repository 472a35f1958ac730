#include "util/hex.h"
#include "util/numbers.h"
#include "util/runtime_error.h"

#include <QTest>

#include <climits>

using namespace veltro;

Q_DECLARE_METATYPE(veltro::Bytes)
Q_DECLARE_METATYPE(std::string)

class TestHex : public QObject {
    Q_OBJECT
private slots:
    void hexByte2Char_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("0") << 0 << "00";
        QTest::newRow("5") << 5 << "05";
        QTest::newRow("15") << 15 << "0F";
        QTest::newRow("16") << 16 << "10";
        QTest::newRow("AB") << 0xAB << "AB";
        QTest::newRow("255") << 255 << "FF";
    }
    void hexByte2Char()
    {
        QFETCH(int, value);
        QFETCH(QString, text);
        QCOMPARE(QString::fromStdString(HexByte2Char(std::uint8_t(value))), text);
    }

    void byteArrayToHexStr_data()
    {
        QTest::addColumn<Bytes>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("one element, two characters") << Bytes{0x0A} << "0A";
        QTest::newRow("three elements, first only") << Bytes{0x0A, 0x1B, 0x2C} << "0A      ";
        QTest::newRow("two elements") << Bytes{0xFF, 0x00} << "FF   ";
    }
    void byteArrayToHexStr()
    {
        QFETCH(Bytes, bytes);
        QFETCH(QString, text);
        QCOMPARE(QString::fromStdString(ByteArrayToHexStr(bytes)), text);
    }

    void makeWord04_data()
    {
        QTest::addColumn<int>("lo");
        QTest::addColumn<int>("hi");
        QTest::addColumn<int>("word");
        QTest::newRow("0x1234") << 0x34 << 0x12 << 0x1234;
        QTest::newRow("166") << 0xA6 << 0x00 << 166;
        QTest::newRow("-256") << 0x00 << 0xFF << -256;
        QTest::newRow("top bit") << 0x00 << 0x80 << -32768;
        QTest::newRow("0x7FFF") << 0xFF << 0x7F << 32767;
    }
    void makeWord04()
    {
        QFETCH(int, lo);
        QFETCH(int, hi);
        QFETCH(int, word);
        QCOMPARE(int(MakeWord04(std::uint8_t(lo), std::uint8_t(hi))), word);
    }

    void rgb_data()
    {
        QTest::addColumn<qint64>("color");
        QTest::addColumn<int>("which");
        QTest::addColumn<int>("part");
        QTest::newRow("red") << qint64(0x123456) << 1 << 0x56;
        QTest::newRow("green") << qint64(1193046) << 2 << 0x34;
        QTest::newRow("blue") << qint64(0x123456) << 3 << 0x12;
        QTest::newRow("other") << qint64(0x123456) << 4 << 0;
        QTest::newRow("zero") << qint64(0x123456) << 0 << 0;
    }
    void rgb()
    {
        QFETCH(qint64, color);
        QFETCH(int, which);
        QFETCH(int, part);
        QCOMPARE(int(RGBsplit(color, which)), part);
        // RGBreturn puts the three parts back together.
        if (which == 1)
            QCOMPARE(qint64(RGBreturn(RGBsplit(color, 1), RGBsplit(color, 2), RGBsplit(color, 3))), color);
    }

    // Components are 16-bit values and the colour a 32-bit one; anything beyond is an overflow.
    void rgbReturn_data()
    {
        QTest::addColumn<int>("r");
        QTest::addColumn<int>("g");
        QTest::addColumn<int>("b");
        QTest::addColumn<qint64>("color"); // 0x7FFFFFFFFF: overflow (6)
        const qint64 overflow = 0x7FFFFFFFFF;
        QTest::newRow("white") << 255 << 255 << 255 << qint64(0xFFFFFF);
        QTest::newRow("negative red") << -1 << 0 << 0 << qint64(-1);
        QTest::newRow("largest blue") << 0 << 0 << 32767 << qint64(32767) * 65536;
        QTest::newRow("beyond 32 bits") << 32767 << 32767 << 32767 << overflow;
        QTest::newRow("blue beyond 16 bits") << 0 << 0 << 32768 << overflow;
        QTest::newRow("red below 16 bits") << -32769 << 0 << 0 << overflow;
        QTest::newRow("int max green") << 0 << 2147483647 << 0 << overflow;
    }
    void rgbReturn()
    {
        QFETCH(int, r);
        QFETCH(int, g);
        QFETCH(int, b);
        QFETCH(qint64, color);
        try {
            QCOMPARE(qint64(RGBreturn(r, g, b)), color);
        } catch (const RuntimeError& e) {
            QCOMPARE(e.number(), 6);
            QCOMPARE(color, qint64(0x7FFFFFFFFF));
        }
    }

    void hexToStr_data()
    {
        QTest::addColumn<QString>("hex");
        QTest::addColumn<int>("separators");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("one pair") << "0A" << 0 << QByteArray("\x0A", 1);
        QTest::newRow("packed") << "0A1BFF" << 0 << QByteArray("\x0A\x1B\xFF", 3);
        QTest::newRow("blank separated") << "0A 1B 2C" << 1 << QByteArray("\x0A\x1B\x2C", 3);
        QTest::newRow("empty") << "" << 0 << QByteArray();
        QTest::newRow("00") << "00" << 0 << QByteArray("\0", 1);
        QTest::newRow("one pair, any separator count") << "0A" << -2 << QByteArray("\x0A", 1);
        QTest::newRow("more separators than text") << "0A1B" << -9 << QByteArray();
        QTest::newRow("int min separators") << "0A1B" << int(INT_MIN) << QByteArray();
    }
    void hexToStr()
    {
        QFETCH(QString, hex);
        QFETCH(int, separators);
        QFETCH(QByteArray, bytes);
        const std::string out = HexToStr(hex.toStdString(), separators);
        QCOMPARE(QByteArray(out.data(), qsizetype(out.size())), bytes);
        // StrToHex is the way back.
        if (!bytes.isEmpty() && separators >= 0) {
            const std::string sep(std::size_t(separators), separators == 1 ? ' ' : '-');
            QCOMPARE(QString::fromStdString(StrToHex(out, sep)), hex);
        }
    }

    void hexToStrErrors_data()
    {
        QTest::addColumn<QString>("hex");
        QTest::addColumn<int>("separators");
        QTest::addColumn<int>("number");
        QTest::newRow("lower case") << "0a" << 0 << 9;
        QTest::newRow("blank in packed text") << "0 1B" << 0 << 9;
        QTest::newRow("beyond F") << "0G" << 0 << 9;
        QTest::newRow("text ends inside pair") << "0A1" << 0 << 5;
        QTest::newRow("-2 separators divide by zero") << "0A1B" << -2 << 11;
        QTest::newRow("-3 separators, negative count") << "0A1B" << -3 << 9;
        QTest::newRow("int max separators") << "0A1B" << int(INT_MAX) << 6;
    }
    void hexToStrErrors()
    {
        QFETCH(QString, hex);
        QFETCH(int, separators);
        QFETCH(int, number);
        try {
            HexToStr(hex.toStdString(), separators);
            QFAIL("no error raised");
        } catch (const RuntimeError& e) {
            QCOMPARE(e.number(), number);
        }
    }

    void hexStringToByteArray_data()
    {
        QTest::addColumn<QString>("hex");
        QTest::addColumn<Bytes>("bytes");
        QTest::newRow("empty") << "" << Bytes{};
        QTest::newRow("pairs") << "0A1BFF" << Bytes{0x0A, 0x1B, 0xFF};
        QTest::newRow("odd digit ignored") << "0A1" << Bytes{0x0A};
        QTest::newRow("lower case") << "ff" << Bytes{0xFF};
    }
    void hexStringToByteArray()
    {
        QFETCH(QString, hex);
        QFETCH(Bytes, bytes);
        QCOMPARE(HexStringToByteArray(hex.toStdString()), bytes);
    }

    void blankRendering()
    {
        QCOMPARE(QString::fromStdString(HexBytesBlank(Bytes{0x0A, 0x1B, 0x2C})), QString("0A 1B 2C"));
        QCOMPARE(QString::fromStdString(HexBytesBlank(Bytes{0x05})), QString("05"));
        QCOMPARE(QString::fromStdString(HexBytesBlank(Bytes{})), QString());
    }

    void leadingNumber_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("number"); // -1: no number
        QTest::newRow("version with point") << "1.06" << 1.06;
        QTest::newRow("first field") << " 170,1.70" << 170.0;
        QTest::newRow("trailing text") << "12abc" << 12.0;
        QTest::newRow("plus sign") << "+3" << 3.0;
        QTest::newRow("hex is not read") << "0x10" << 0.0;
        QTest::newRow("no digits") << "abc" << -1.0;
        QTest::newRow("inf") << "inf" << -1.0;
        QTest::newRow("-inf") << "-inf" << -1.0;
        QTest::newRow("nan") << "nan,1.70" << -1.0;
        QTest::newRow("-nan") << " -nan" << -1.0;
        QTest::newRow("-infinity") << "-INFINITY" << -1.0;
        QTest::newRow("lone minus") << "-" << -1.0;
        QTest::newRow("negative fraction") << "-.5" << -0.5;
        QTest::newRow("out of range") << "1e999" << -1.0;
        QTest::newRow("empty") << "" << -1.0;
    }
    void leadingNumber()
    {
        QFETCH(QString, text);
        QFETCH(double, number);
        const auto got = veltro::leadingNumber(text.toStdString());
        QCOMPARE(got.value_or(-1.0), number);
    }

    void errorsCarryNumberAndText()
    {
        const RuntimeError e(ErrNo::DialogCancel);
        QCOMPARE(e.number(), 32755);
        QVERIFY(QString::fromStdString(e.message()).startsWith("Laufzeitfehler '32755'"));
        QVERIFY_THROWS_EXCEPTION(RuntimeError, ByteArrayToHexStr(Bytes{}));
        QVERIFY_THROWS_EXCEPTION(RuntimeError, HexStringToByteArray("zz"));
    }
};

QTEST_APPLESS_MAIN(TestHex)
#include "test_hex.moc"
