#include "util/hex.h"
#include "util/numbers.h"
#include "util/runtime_error.h"

#include <QTest>

#include <climits>
#include <type_traits>

using namespace veltro;

Q_DECLARE_METATYPE(veltro::Bytes)
Q_DECLARE_METATYPE(std::string)

namespace {

// The call's result as text (a number in decimal, bytes in hex), or "error N" for the runtime
// error it raised.
template <class Call>
QString outcome(Call call)
{
    try {
        const auto result = call();
        if constexpr (std::is_same_v<decltype(result), const std::string>)
            return QString::fromStdString(result);
        else if constexpr (std::is_same_v<decltype(result), const Bytes>)
            return QByteArray(reinterpret_cast<const char*>(result.data()), qsizetype(result.size())).toHex();
        else
            return QString::number(qint64(result));
    } catch (const RuntimeError& e) {
        return "error " + QString::number(e.number());
    }
}

} // namespace

class TestHex : public QObject {
    Q_OBJECT
private slots:
    // What each helper gives, as text or "error N". ByteArrayToHexStr fills in the first byte
    // only and leaves three blanks for every further one. RGBreturn takes 16-bit components and
    // gives a 32-bit colour; anything beyond is an overflow (6). HexToStr reads upper-case
    // digits only, through a table from '0' to 'F'.
    void results_data()
    {
        QTest::addColumn<QString>("result");
        QTest::addColumn<QString>("expected");
        const auto byte = [](int v) { return outcome([=] { return HexByte2Char(std::uint8_t(v)); }); };
        const auto word = [](int lo, int hi) {
            return outcome([=] { return MakeWord04(std::uint8_t(lo), std::uint8_t(hi)); });
        };
        const auto rgb = [](int r, int g, int b) { return outcome([=] { return RGBreturn(r, g, b); }); };
        const auto hexToStr = [](const char* hex, int n) { return outcome([=] { return HexToStr(hex, n); }); };
        const auto bytes = [](const char* hex) { return outcome([=] { return HexStringToByteArray(hex); }); };
        QTest::newRow("HexByte2Char 16") << byte(16) << "10";
        QTest::newRow("HexByte2Char 255") << byte(255) << "FF";
        QTest::newRow("ByteArrayToHexStr, three elements, first only")
            << outcome([] { return ByteArrayToHexStr({0x0A, 0x1B, 0x2C}); }) << "0A      ";
        QTest::newRow("HexBytesBlank, three")
            << outcome([] { return HexBytesBlank(Bytes{0x0A, 0x1B, 0x2C}); }) << "0A 1B 2C";
        QTest::newRow("MakeWord04 top bit") << word(0x00, 0x80) << "-32768";
        QTest::newRow("MakeWord04 0x7FFF") << word(0xFF, 0x7F) << "32767";
        QTest::newRow("RGBsplit green") << outcome([] { return RGBsplit(1193046, 2); }) << QString::number(0x34);
        QTest::newRow("RGBsplit other") << outcome([] { return RGBsplit(0x123456, 4); }) << "0";
        QTest::newRow("RGBreturn puts the parts back together")
            << rgb(RGBsplit(0x123456, 1), RGBsplit(0x123456, 2), RGBsplit(0x123456, 3)) << QString::number(0x123456);
        QTest::newRow("RGBreturn negative red") << rgb(-1, 0, 0) << "-1";
        QTest::newRow("RGBreturn largest blue") << rgb(0, 0, 32767) << QString::number(qint64(32767) * 65536);
        QTest::newRow("RGBreturn beyond 32 bits") << rgb(32767, 32767, 32767) << "error 6";
        QTest::newRow("RGBreturn blue beyond 16 bits") << rgb(0, 0, 32768) << "error 6";
        QTest::newRow("HexToStr lower case") << hexToStr("0a", 0) << "error 9";
        QTest::newRow("HexToStr beyond F") << hexToStr("0G", 0) << "error 9";
        QTest::newRow("HexToStr text ends inside pair") << hexToStr("0A1", 0) << "error 5";
        QTest::newRow("HexToStr -2 separators divide by zero") << hexToStr("0A1B", -2) << "error 11";
        QTest::newRow("HexToStr int max separators") << hexToStr("0A1B", int(INT_MAX)) << "error 6";
        QTest::newRow("HexStringToByteArray, odd digit ignored") << bytes("0A1") << "0a";
        QTest::newRow("HexStringToByteArray, lower case") << bytes("ff") << "ff";
    }
    void results()
    {
        QFETCH(QString, result);
        QFETCH(QString, expected);
        QCOMPARE(result, expected);
    }

    void hexToStr_data()
    {
        QTest::addColumn<QString>("hex");
        QTest::addColumn<int>("separators");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("packed") << "0A1BFF" << 0 << QByteArray("\x0A\x1B\xFF", 3);
        QTest::newRow("blank separated") << "0A 1B 2C" << 1 << QByteArray("\x0A\x1B\x2C", 3);
        QTest::newRow("empty") << "" << 0 << QByteArray();
        QTest::newRow("one pair, any separator count") << "0A" << -2 << QByteArray("\x0A", 1);
        QTest::newRow("more separators than text") << "0A1B" << -9 << QByteArray();
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

    void leadingNumber_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("number"); // -1: no number
        QTest::newRow("version with point") << "1.06" << 1.06;
        QTest::newRow("first field") << " 170,1.70" << 170.0;
        QTest::newRow("plus sign") << "+3" << 3.0;
        QTest::newRow("hex is not read") << "0x10" << 0.0;
        QTest::newRow("no digits") << "abc" << -1.0;
        QTest::newRow("inf") << "inf" << -1.0;
        QTest::newRow("negative fraction") << "-.5" << -0.5;
        QTest::newRow("out of range") << "1e999" << -1.0;
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
