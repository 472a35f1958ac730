#include "editor/codec.h"
#include "util/hex.h"
#include "util/runtime_error.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

using namespace veltro;

namespace {

int errorNumber(const std::function<void()>& call)
{
    try {
        call();
    } catch (const RuntimeError& e) {
        return e.number();
    }
    return 0;
}

QByteArray q(const std::string& s) { return QByteArray(s.data(), qsizetype(s.size())); }
std::string s(const QByteArray& b) { return std::string(b.constData(), std::size_t(b.size())); }

QByteArray q(const Bytes& b) { return QByteArray(reinterpret_cast<const char*>(b.data()), qsizetype(b.size())); }

// Something with a text property, like a line edit.
struct TextBox {
    QString value;
    QString text() const { return value; }
    void setText(const QString& t) { value = t; }
};

} // namespace

class TestCodec : public QObject {
    Q_OBJECT
private slots:
    void hextobytearray_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("error");
        QTest::newRow("0Ax1F") << "0Ax1F" << QByteArray::fromHex("0A1F000000000000") << 0;
        QTest::newRow("empty") << "" << QByteArray(8, '\0') << 0;
        QTest::newRow("eight pieces") << "01x02x03x04x05x06x07xFF" << QByteArray::fromHex("01020304050607FF") << 0;
        QTest::newRow("first piece goes to byte 0") << "12x34" << QByteArray::fromHex("1234000000000000") << 0;
        QTest::newRow("ninth piece") << "01x02x03x04x05x06x07x08x09" << QByteArray() << 9;
        QTest::newRow("ninth piece, empty") << "01x02x03x04x05x06x07x08x" << QByteArray() << 9;
        QTest::newRow("above FF") << "1FFx00" << QByteArray() << 6;
        QTest::newRow("overflow before the ninth piece") << "100x02x03x04x05x06x07x08x09" << QByteArray() << 6;
        QTest::newRow("not hex reads 0") << "zzx0A" << QByteArray::fromHex("000A000000000000") << 0;
        QTest::newRow("digits as far as they go") << "0A1Gx05" << QByteArray::fromHex("A105000000000000") << 0;
        QTest::newRow("lower-case digits") << "0ax1f" << QByteArray::fromHex("0A1F000000000000") << 0;
        QTest::newRow("upper-case X does not split") << "0AX1F" << QByteArray::fromHex("0A00000000000000") << 0;
        QTest::newRow("empty pieces") << "x0Ax" << QByteArray::fromHex("000A000000000000") << 0;
    }
    void hextobytearray()
    {
        QFETCH(QString, text);
        QFETCH(QByteArray, bytes);
        QFETCH(int, error);
        std::array<std::uint8_t, 8> result{};
        QCOMPARE(errorNumber([&] { result = veltro::hextobytearray(text.toStdString()); }), error);
        if (!error)
            QCOMPARE(QByteArray(reinterpret_cast<const char*>(result.data()), 8).toHex(' '), bytes.toHex(' '));
    }

    void codeDecode_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("coded");
        QTest::newRow("empty") << QByteArray() << QByteArray();
        QTest::newRow("the key codes to zeros") << QByteArray("hwoR52N8FTkv") << QByteArray(12, '\0');
        QTest::newRow("key reused from its start") << QByteArray("hwoR52N8FTkvhw") << QByteArray(14, '\0');
        QTest::newRow("zeros give the key") << QByteArray(13, '\0') << QByteArray("hwoR52N8FTkvh");
        QTest::newRow("high bytes") << QByteArray("\xFF\x80", 2) << QByteArray("\x97\xF7", 2);
    }
    void codeDecode()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, coded);
        const std::string once = CodeDecode(s(text), kCodecKey);
        QCOMPARE(q(once).toHex(' '), coded.toHex(' '));
        QCOMPARE(q(CodeDecode(once, kCodecKey)), text);
    }

    void codeDecodeNeedsKey()
    {
        QCOMPARE(errorNumber([] { CodeDecode("abc", ""); }), 5);
    }

    void encodeArrayB_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<int>("lowerBound");
        QTest::addColumn<QByteArray>("coded");
        QTest::newRow("no password, 00 00") << QByteArray::fromHex("0000") << QByteArray() << 0 << QByteArray::fromHex("FFFE");
        QTest::newRow("no password, index in the code") << QByteArray::fromHex("FF0F00") << QByteArray() << 0 << QByteArray::fromHex("00F1FD");
        QTest::newRow("no password, lower bound 1") << QByteArray::fromHex("0000") << QByteArray() << 1 << QByteArray::fromHex("FEFD");
        QTest::newRow("one character") << QByteArray::fromHex("000000") << QByteArray("A") << 0 << QByteArray::fromHex("BEBFBC");
        QTest::newRow("two characters take turns") << QByteArray::fromHex("000000") << QByteArray("AB") << 0 << QByteArray::fromHex("BEBCBC");
        QTest::newRow("password longer than the bytes") << QByteArray::fromHex("00") << QByteArray("ABC") << 0 << QByteArray::fromHex("BE");
    }
    void encodeArrayB()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, password);
        QFETCH(int, lowerBound);
        QFETCH(QByteArray, coded);
        Bytes b(bytes.begin(), bytes.end());
        EncodeArrayB(b, s(password), lowerBound);
        QCOMPARE(q(b).toHex(' '), coded.toHex(' '));
        EncodeArrayB(b, s(password), lowerBound);
        QCOMPARE(q(b), bytes);
    }

    void encodeStrings()
    {
        std::string empty;
        EncodeString(empty);
        QCOMPARE(empty, std::string());
        QCOMPARE(q(EncodeStr(std::string(2, '\0'))), QByteArray::fromHex("FFFE"));
        const std::string text = "Öldruck 4,5 bar";
        QCOMPARE(EncodeStr(EncodeStr(text, kCodecKey), kCodecKey), text);
        QVERIFY(EncodeStr(text, kCodecKey) != text);
    }

    void encodeControlText()
    {
        TextBox box{QStringLiteral("Kühlwasser °C €")};
        EncodeControlText(box);
        QVERIFY(box.value != QStringLiteral("Kühlwasser °C €"));
        EncodeControlText(box);
        QCOMPARE(box.value, QStringLiteral("Kühlwasser °C €"));

        std::string stored = "ABC";
        EncodeControlText([&] { return stored; }, [&](const std::string& t) { stored = t; });
        QCOMPARE(q(stored), q(EncodeStr("ABC", kCodecKey)));
    }

    void binStrToByte_data()
    {
        QTest::addColumn<QString>("bits");
        QTest::addColumn<int>("value");
        QTest::newRow("00000101") << "00000101" << 5;
        QTest::newRow("00000111") << "00000111" << 7;
        QTest::newRow("first is bit 7") << "10000000" << 128;
        QTest::newRow("all") << "11111111" << 255;
        QTest::newRow("only 1 counts") << "2000000x" << 0;
        QTest::newRow("short text: missing bits clear") << "0000011" << 6;
    }
    void binStrToByte()
    {
        QFETCH(QString, bits);
        QFETCH(int, value);
        QCOMPARE(int(BinStrToByte(bits.toStdString())), value);
    }

    void getBit_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("bit");
        QTest::addColumn<int>("result");
        QTest::newRow("5 bit 0") << 5 << 0 << 1;
        QTest::newRow("5 bit 1") << 5 << 1 << 0;
        QTest::newRow("5 bit 2") << 5 << 2 << 1;
        QTest::newRow("128 bit 7") << 128 << 7 << 1;
        QTest::newRow("127 bit 7") << 127 << 7 << 0;
        QTest::newRow("bit 8") << 255 << 8 << -5;
        QTest::newRow("bit -1") << 255 << -1 << -5;
    }
    void getBit()
    {
        QFETCH(int, value);
        QFETCH(int, bit);
        QFETCH(int, result);
        int got = 0;
        const int error = errorNumber([&] { got = GetBit(std::uint8_t(value), bit); });
        QCOMPARE(error ? -error : got, result);
    }

    void txtReadAll_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("error");
        QTest::newRow("no file") << false << QByteArray() << QByteArray() << 0;
        QTest::newRow("two bytes") << true << QByteArray("\r\n") << QByteArray() << 0;
        QTest::newRow("last two dropped unread") << true << QByteArray("abc\x01\x02") << QByteArray("abc") << 0;
        QTest::newRow("bytes kept as they are") << true << QByteArray("\x00\xFF\r\nxy", 6) << QByteArray("\x00\xFF\r\n", 4) << 0;
        QTest::newRow("one byte") << true << QByteArray("a") << QByteArray() << 5;
        QTest::newRow("empty file") << true << QByteArray() << QByteArray() << 5;
    }
    void txtReadAll()
    {
        QFETCH(bool, exists);
        QFETCH(QByteArray, content);
        QFETCH(QByteArray, text);
        QFETCH(int, error);
        QTemporaryDir dir;
        const QString path = dir.filePath("vehicle.fzd");
        if (exists) {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(content);
        }
        std::string got;
        QCOMPARE(errorNumber([&] { got = txt_ReadAll(path.toStdString()); }), error);
        QCOMPARE(q(got), text);
    }

    void windows1252_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("ASCII") << QByteArray("ABC") << "ABC";
        QTest::newRow("euro, dagger, Y diaeresis") << QByteArray("\x80\x86\x9F") << QString::fromUtf8("€†Ÿ");
        QTest::newRow("Latin-1 part") << QByteArray("\xC4\xD6\xDC\xDF\xB0") << QString::fromUtf8("ÄÖÜß°");
        QTest::newRow("unassigned codes") << QByteArray("\x81\x8D\x8F\x90\x9D") << QString::fromUtf8("\u0081\u008D\u008F\u0090\u009D");
    }
    void windows1252()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, text);
        QCOMPARE(windows1252ToQString(s(bytes)), text);
        QCOMPARE(q(qStringToWindows1252(text)), bytes);
    }

    void windows1252EveryByte()
    {
        std::string all;
        for (int b = 0; b < 256; ++b)
            all.push_back(char(b));
        QCOMPARE(q(qStringToWindows1252(windows1252ToQString(all))), q(all));
        QCOMPARE(q(qStringToWindows1252(QStringLiteral("→"))), QByteArray("?"));
    }
};

QTEST_GUILESS_MAIN(TestCodec)
#include "test_codec.moc"
