#include "util/hex.h"
#include "util/runtime_error.h"

#include <QTest>

#include <climits>
#include <type_traits>

using namespace veltro;

namespace {

// The call's result as text (a number in decimal), or "error N" for the runtime error it raised.
template <class Call>
QString outcome(Call call)
{
    try {
        const auto result = call();
        if constexpr (std::is_same_v<decltype(result), const std::string>)
            return QString::fromStdString(result);
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
    // What each helper gives, as text or "error N", where the fuzz model of hex texts leaves the
    // value open. ByteArrayToHexStr fills in the first byte only and leaves three blanks for every
    // further one. RGBreturn takes 16-bit components and gives a 32-bit colour; anything beyond
    // is an overflow (6). HexToStr's errors: 9 outside its digit table, 5 for a cut pair, 11 and
    // 6 for separator counts it cannot step by.
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
        QTest::newRow("HexByte2Char 16") << byte(16) << "10";
        QTest::newRow("ByteArrayToHexStr, three elements, first only")
            << outcome([] { return ByteArrayToHexStr({0x0A, 0x1B, 0x2C}); }) << "0A      ";
        QTest::newRow("MakeWord04 top bit") << word(0x00, 0x80) << "-32768";
        QTest::newRow("RGBreturn beyond 32 bits") << rgb(32767, 32767, 32767) << "error 6";
        QTest::newRow("RGBreturn blue beyond 16 bits") << rgb(0, 0, 32768) << "error 6";
        QTest::newRow("HexToStr lower case") << hexToStr("0a", 0) << "error 9";
        QTest::newRow("HexToStr text ends inside pair") << hexToStr("0A1", 0) << "error 5";
        QTest::newRow("HexToStr -2 separators divide by zero") << hexToStr("0A1B", -2) << "error 11";
        QTest::newRow("HexToStr int max separators") << hexToStr("0A1B", int(INT_MAX)) << "error 6";
    }
    void results()
    {
        QFETCH(QString, result);
        QFETCH(QString, expected);
        QCOMPARE(result, expected);
    }
};

QTEST_APPLESS_MAIN(TestHex)
#include "test_hex.moc"
