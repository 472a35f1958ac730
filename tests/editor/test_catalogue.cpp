#include "editor/catalogue.h"
#include "editor/codec.h"
#include "editor/demo_catalogue.h"
#include "util/runtime_error.h"

#include "test_files.h"

#include <QTemporaryDir>
#include <QTest>

#include <type_traits>

using namespace veltro;
using namespace veltro::test;

namespace {

QByteArray q(const std::string& s) { return QByteArray::fromStdString(s); }
std::string s(const QByteArray& b) { return b.toStdString(); }

// The call's result as bytes (a number in decimal), or "error N" for the runtime error it raised.
template <class Call>
QByteArray outcome(Call call)
{
    try {
        const auto result = call();
        if constexpr (std::is_integral_v<decltype(result)>)
            return QByteArray::number(int(result));
        else
            return QByteArray(reinterpret_cast<const char*>(result.data()), qsizetype(result.size()));
    } catch (const RuntimeError& e) {
        return "error " + QByteArray::number(e.number());
    }
}

// The catalogue "vehicles.inc" holding `text` as "name|file|...".
QByteArray catalogue(const QByteArray& text)
{
    return outcome([&] {
        QByteArrayList fields;
        for (const CatalogueEntry& e : parseCatalogue(s(text)))
            fields << q(e.name) << q(e.dataFile);
        return fields.join('|');
    });
}

// Decoded vehicle data summed up as its line count, kinds and ignition record.
QByteArray vehicle(const QByteArray& decoded)
{
    return outcome([&] {
        const VehicleDescription v = parseVehicleData(s(decoded));
        return QString("%1 lines, %2 display, %3 switches, KLEMME15 %4").arg(v.lineNames.size())
            .arg(v.displayValues.size()).arg(v.switches.size()).arg(QString::fromStdString(v.klemme15A)).toLatin1();
    });
}

// Something with a text property, like a line edit.
struct TextBox {
    QString value;
    QString text() const { return value; }
    void setText(const QString& t) { value = t; }
};

// A small vehicle in the decoded form: ignition, regeneration, three display values (two with
// the same record A), two switches.
const char* const kVehicle =
    "KLEMME15-18xFExF1x00x00x01x01x00-00x00x00x00x01x00x00x00----\r\n"
    "FELDREGENERATION-18xFDx7Cx00x02x01x02x00-00x00x00x00x04x00x00x00----\r\n"
    "Drehzahl-0CxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-1-DISPLAY\r\n"
    "\xD6ldruck-18xFExEFx00x03x01x00x00-04x01x00x00x00x00x00x00-\xD6LDRUCK -1-3-DISPLAY\r\n"
    "Drehzahl fein-0CxF0x04x00x03x02x00x00-01x01x00x00x00x00x00x00-DREHZ.  -1-1-DISPLAY\r\n"
    "Kein Schalter-00x00x00x00x00x00x00x00-00x00x00x00x00x00x00x00----SCHALTER\r\n"
    "Nebel-18xFExF2x00x03x01x04x01-01x00x00x00x00x00x00x00----SCHALTER";

} // namespace

class TestCatalogue : public QObject {
    Q_OBJECT
private slots:
    // The catalogue, decoded vehicle data line by line, the codings (each its own inverse), record
    // texts and the bit helpers: what each call gives, as bytes or "error N".
    void results_data()
    {
        QTest::addColumn<QByteArray>("result");
        QTest::addColumn<QByteArray>("expected");
        const auto arrayB = [](Bytes b, std::string_view key, int lower) { EncodeArrayB(b, key, lower); return b; };
        QTest::newRow("quoted") << catalogue("\"Kombi 1.6\",\"k16.fzd\"\r\n\"Pritsche 3.0, Euro 6\",\"p30.fzd\"\r\n")
                                << QByteArray("Kombi 1.6|k16.fzd|Pritsche 3.0, Euro 6|p30.fzd");
        QTest::newRow("unquoted, blanks around") << catalogue("  Reisemobil K7,   k7.fzd  \r\n") << QByteArray("Reisemobil K7|k7.fzd");
        QTest::newRow("blanks inside quotes, LF, blank lines at the end")
            << catalogue("\" Van \" ,\"v.fzd\"\nc,d\r\n\r\n  \r\n") << QByteArray(" Van |v.fzd|c|d");
        QTest::newRow("record without a file") << catalogue("\"Kombi\",\"k.fzd\"\r\n\"Traktor\"\r\n") << QByteArray("error 62");
        QTest::newRow("no catalogue") << outcome([] { return readCatalogue("none/vehicles.inc").size(); }) << QByteArray("error 53");
        QTest::newRow("ignition with four more -") << vehicle("KLEMME15-01x02-03x04----")
                                                   << QByteArray("1 lines, 0 display, 0 switches, KLEMME15 01x02");
        QTest::newRow("sample vehicle") << vehicle(kVehicle)
                                        << QByteArray("7 lines, 3 display, 2 switches, KLEMME15 18xFExF1x00x00x01x01x00");
        QTest::newRow("empty text") << vehicle("") << QByteArray("0 lines, 0 display, 0 switches, KLEMME15 ");
        QTest::newRow("empty line") << vehicle("a-b-c-d-e-f-DISPLAY\r\n\r\na-b-c-d-e-f-DISPLAY") << QByteArray("error 9");
        QTest::newRow("line end at the end") << vehicle("a-b-c-d-e-f-DISPLAY\r\n") << QByteArray("error 9");
        QTest::newRow("LF alone ends no line, kinds are case-sensitive")
            << vehicle("a-b-c-d-e-f-DISPLAY\nklemme15-b-c-d-e-f-display") << QByteArray("1 lines, 0 display, 0 switches, KLEMME15 ");
        const auto code = [](const QByteArray& text) { return q(CodeDecode(s(text), kCodecKey)); };
        const auto record = [](const char* text) { return outcome([=] { return hextobytearray(text); }); };
        const auto control = [](int times) {
            TextBox box{QStringLiteral("Kühlwasser °C €")};
            for (int i = 0; i < times; ++i)
                EncodeControlText(box);
            return q(qStringToWindows1252(box.value));
        };
        QTest::newRow("zeros give the key") << code(QByteArray(13, '\0')) << QByteArray("hwoR52N8FTkvh");
        QTest::newRow("CodeDecode twice") << code(code("\xD6l 4,5 bar\xFF")) << QByteArray("\xD6l 4,5 bar\xFF");
        QTest::newRow("CodeDecode without a key") << outcome([] { return CodeDecode("abc", ""); }) << QByteArray("error 5");
        QTest::newRow("EncodeArrayB, lower bound 1") << outcome([&] { return arrayB({0, 0}, "", 1); }) << QByteArray("\xFE\xFD");
        QTest::newRow("EncodeArrayB, password") << outcome([&] { return arrayB({0, 0, 0}, "AB", 0); }) << QByteArray("\xBE\xBC\xBC");
        QTest::newRow("EncodeArrayB twice") << outcome([&] { return arrayB(arrayB({1, 2, 3}, "AB", 1), "AB", 1); })
                                            << QByteArray("\x01\x02\x03");
        QTest::newRow("EncodeStr") << q(EncodeStr(std::string(2, '\0'))) << QByteArray("\xFF\xFE");
        QTest::newRow("EncodeControlText") << control(1) << q(EncodeStr("K\xFChlwasser \xB0" "C \x80", kCodecKey));
        QTest::newRow("record, empty") << record("") << QByteArray(8, '\0');
        QTest::newRow("record, eight pieces") << record("01x02x03x04x05x06x07xFF") << QByteArray::fromHex("01020304050607FF");
        QTest::newRow("record, ninth piece") << record("01x02x03x04x05x06x07x08x09") << QByteArray("error 9");
        QTest::newRow("record, ninth piece empty") << record("01x02x03x04x05x06x07x08x") << QByteArray("error 9");
        QTest::newRow("record, piece above FF") << record("1FFx00") << QByteArray("error 6");
        QTest::newRow("record, hex digits as far as they go") << record("0a1Gxzz") << QByteArray::fromHex("A100000000000000");
        QTest::newRow("record, upper-case X does not split") << record("0AX1F") << QByteArray::fromHex("0A00000000000000");
        QTest::newRow("first character is bit 7") << outcome([] { return BinStrToByte("10000000"); }) << QByteArray("128");
        QTest::newRow("only 1 sets a bit") << outcome([] { return BinStrToByte("2000000x"); }) << QByteArray("0");
        QTest::newRow("missing bits clear") << outcome([] { return BinStrToByte("0000011"); }) << QByteArray("6");
        QTest::newRow("GetBit 5, 0") << outcome([] { return GetBit(5, 0); }) << QByteArray("1");
        QTest::newRow("GetBit 128, 7") << outcome([] { return GetBit(128, 7); }) << QByteArray("1");
        QTest::newRow("GetBit 255, 8") << outcome([] { return GetBit(255, 8); }) << QByteArray("error 5");
    }
    void results()
    {
        QFETCH(QByteArray, result);
        QFETCH(QByteArray, expected);
        QCOMPARE(result, expected);
    }

    // A coded file loads as its text; a missing file describes nothing, a one-byte file is no
    // coded text. (The stored form and malformed lines: test_vehicles_tool, test_editor.)
    void loadVehicle()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("v.fzd");
        const auto load = [&] { return outcome([&] { return loadVehicleData(path.toStdString()).lineNames.size(); }); };
        QCOMPARE(load(), QByteArray("0"));
        QVERIFY(writeFile(path, q(encodeVehicleData(kVehicle))));
        QCOMPARE(loadVehicleData(path.toStdString()), parseVehicleData(kVehicle));
        QVERIFY(writeFile(path, "a"));
        QCOMPARE(load(), QByteArray("error 5"));
    }

    void lastSelection()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("lastsel.inc");
        QVERIFY(writeFile(path, QByteArray(40, 'x')));
        writeLastSelection(path.toStdString(), 3);
        QCOMPARE(readFile(path), QByteArray(" 3 \r\n"));
    }

    // Texts as stored, shown as Unicode, written back byte for byte.
    void windows1252()
    {
        QCOMPARE(windows1252ToQString("\x80\x86\x9F\xC4\xD6\xDC\xDF\xB0"), QStringLiteral("€†ŸÄÖÜß°"));
        QCOMPARE(windows1252ToQString("\x81\x8D\x8F\x90\x9D"), QStringLiteral("\u0081\u008D\u008F\u0090\u009D"));
        std::string all;
        for (int b = 0; b < 256; ++b)
            all.push_back(char(b));
        QCOMPARE(q(qStringToWindows1252(windows1252ToQString(all))), q(all));
        QCOMPARE(q(qStringToWindows1252(QStringLiteral("→"))), QByteArray("?"));
    }

    // Every sample vehicle loads with enough entries for the editor's lists. A configuration saved
    // from one and read back is checked by test_demo and test_editor.
    void demoCatalogue()
    {
        const QString demo = QString::fromStdString(demoCatalogueDir());
        const auto entries = readCatalogue((demo + "/vehicles.inc").toStdString());
        QVERIFY(entries.size() >= 3);
        for (const CatalogueEntry& entry : entries) {
            const QString name = QString::fromStdString(entry.dataFile);
            const std::string path = (demo + "/" + name).toStdString();
            const VehicleDescription v = loadVehicleData(path);
            QVERIFY2(v.displayValues.size() >= 6 && !v.switches.empty(), qPrintable(name));
        }
    }
};

QTEST_GUILESS_MAIN(TestCatalogue)
#include "test_catalogue.moc"
