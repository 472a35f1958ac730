// The editor's logic without a window: the catalogue and the codings, the image and its
// fields, opening, preselection and saving.
#include "editor/catalogue.h"
#include "editor/codec.h"
#include "editor/config_image.h"
#include "editor/editor_logic.h"
#include "util/runtime_error.h"

#include "test_files.h"

#include <QTemporaryDir>
#include <QTest>

#include <functional>
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
            return qbytes(result);
    } catch (const RuntimeError& e) {
        return "error " + QByteArray::number(e.number());
    }
}

// The catalogue "vehicles.inc" holding `text` as "name|file|...".
QByteArray catalogue(const QByteArray& text)
{
    QByteArrayList fields;
    for (const CatalogueEntry& e : parseCatalogue(s(text)))
        fields << q(e.name) << q(e.dataFile);
    return fields.join('|');
}

// Something with a text property, like a line edit.
struct TextBox {
    QString value;
    QString text() const { return value; }
    void setText(const QString& t) { value = t; }
};

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

const std::string kZero = "00x00x00x00x00x00x00x00";
const std::string kRpm = "0CxF0x04x00x03x02x00x00";
const std::string kTemp = "18xFExEEx00x00x01x00x00";
const std::string kOil = "18xFExEFx00x03x01x00x00";
const std::string kLight = "1Ax01x00x00x00x00x00x00";
const std::string kHorn = "1Ax02x00x00x00x00x00x00";

// Vehicle 1 of a two-vehicle catalogue. Temperature appears twice: the later entry wins.
const std::string kVehicle =
    "KLEMME15-18xFExF1x00x00x01x01x00-00x00x00x00x01x00x00x00----\r\n"
    "FELDREGENERATION-00x00x00x00x00x00x00x00-00x00x00x00x00x00x00x00----\r\n"
    "Motordrehzahl-" + kRpm + "-01x08x00x00x00x00x00x00-DREHZAHL-0-1-DISPLAY\r\n"
    "Temperatur-" + kTemp + "-01x01x28x00x00x00x00x00-TEMP    -0-2-DISPLAY\r\n"
    "Oeldruck-" + kOil + "-04x01x00x00x00x00x00x00-OELDRUCK-1-3-DISPLAY\r\n"
    "Temperatur neu-" + kTemp + "-01x01x29x00x00x00x00x00-TEMP2   -0-2-DISPLAY\r\n"
    "Licht-" + kLight + "-1Bx01x00x00x00x00x00x00----SCHALTER\r\n"
    "Hupe-" + kHorn + "-1Bx02x00x00x00x00x00x00----SCHALTER";

VehicleDescription vehicle(const std::string& text = kVehicle) { return parseVehicleData(text); }


ImageReading reading(std::array<std::string, 9> rows, std::uint8_t speed = 2, std::uint8_t switching = 5)
{
    ImageReading r;
    r.rows = rows;
    r.flags = 0x07;
    r.threshold = 168;
    r.speed = speed;
    r.switching = switching;
    return r;
}

std::array<std::string, 9> rowsOf(const std::string& line1, const std::string& line2, const std::string& sw)
{
    return {line1, kZero, kZero, line2, kZero, kZero, kZero, kZero, sw};
}

EditorView opened(const ImageReading& image, const std::string& btversion = "181")
{
    EditorView v = startEditor({{"Erstes", "v0.fzd"}, {"Zweites", "v1.fzd"}}, 1, image, ',');
    loadVehicle(v, vehicle(), btversion);
    return v;
}

// A program folder with the catalogue, vehicle 1's data file and the device image 1A2B3C4D.eep.
struct Folder {
    QTemporaryDir dir;
    std::string path() const { return dir.path().toStdString(); }
    QString file(const QString& name) const { return dir.path() + "/" + name; }
    Folder(const Bytes& image = {}, const std::string& text = kVehicle)
    {
        writeFile(file("vehicles.inc"), "\"Erstes\",\"v0.fzd\"\r\n\"Zweites\",\"v1.fzd\"\r\n");
        writeFile(file("v1.fzd"), QByteArray::fromStdString(encodeVehicleData(text)));
        writeFile(file("1A2B3C4D.eep"), qbytes(image));
    }
    EditorView open(const std::string& ecutyp = "1", const std::string& btversion = "181") const
    {
        return openEditor(path(), {ecutyp, "1A2B3C4D", btversion}, ',');
    }
    QByteArray bytes(const QString& name) const { return readFile(file(name)); }
};

// An image the editor's writer made from one choice on vehicle 1.
Bytes editorImage()
{
    EditorChoice c;
    c.displayLines = {0, 2, 3, 0, 2, 3}; // not entry 1: its record is also entry 3's
    c.switchInput = 1;
    c.options = {true, false, true};
    c.threshold = "11,5";
    c.speed = 1;
    c.switching = 5;
    Bytes file;
    writeImage(file, VehicleImageSource(vehicle(), c, ','));
    return file;
}

using Setup = std::function<void(Folder&)>;

// What ends the editor while it opens: a change to the folder, the vehicle number and layout
// given, the run-time error (0: none) and whether lastsel.inc was written before it.
struct OpeningRow {
    Setup setup;
    std::string ecutyp, btversion;
    int error;
    bool lastsel;
};
} // namespace

Q_DECLARE_METATYPE(std::string)
Q_DECLARE_METATYPE(OpeningRow)
using PreselectionRows = std::array<std::string, 3>;
Q_DECLARE_METATYPE(PreselectionRows)

class TestEditor : public QObject {
    Q_OBJECT
private slots:
    // What each call gives, as bytes or "error N", where the fuzz model of the catalogue and the
    // codings (round trips, the line rules of vehicle data) leaves the value open.
    void results_data()
    {
        QTest::addColumn<QByteArray>("result");
        QTest::addColumn<QByteArray>("expected");
        const auto arrayB = [](Bytes b, std::string_view key, int lower) { EncodeArrayB(b, key, lower); return b; };
        QTest::newRow("unquoted, blanks around") << catalogue("  Reisemobil K7,   k7.fzd  \r\n") << QByteArray("Reisemobil K7|k7.fzd");
        QTest::newRow("blanks inside quotes, LF, blank lines at the end")
            << catalogue("\" Van \" ,\"v.fzd\"\nc,d\r\n\r\n  \r\n") << QByteArray(" Van |v.fzd|c|d");
        const auto code = [](const QByteArray& text) { return q(CodeDecode(s(text), kCodecKey)); };
        TextBox box{QStringLiteral("Kühlwasser °C €")};
        EncodeControlText(box);
        QTest::newRow("zeros give the key") << code(QByteArray(13, '\0')) << QByteArray("hwoR52N8FTkvh");
        QTest::newRow("EncodeArrayB, lower bound 1") << outcome([&] { return arrayB({0, 0}, "", 1); }) << QByteArray("\xFE\xFD");
        QTest::newRow("EncodeArrayB, password") << outcome([&] { return arrayB({0, 0, 0}, "AB", 0); }) << QByteArray("\xBE\xBC\xBC");
        QTest::newRow("EncodeStr") << q(EncodeStr(std::string(2, '\0'))) << QByteArray("\xFF\xFE");
        QTest::newRow("EncodeControlText") << q(qStringToWindows1252(box.value)) << q(EncodeStr("K\xFChlwasser \xB0" "C \x80", kCodecKey));
        QTest::newRow("first character is bit 7") << outcome([] { return BinStrToByte("10000000"); }) << QByteArray("128");
        QTest::newRow("only 1 sets a bit") << outcome([] { return BinStrToByte("2000000x"); }) << QByteArray("0");
        QTest::newRow("GetBit 255, 8") << outcome([] { return GetBit(255, 8); }) << QByteArray("error 5");
    }
    void results()
    {
        QFETCH(QByteArray, result);
        QFETCH(QByteArray, expected);
        QCOMPARE(result, expected);
    }

    // Stored texts shown as Unicode; what the code page lacks is stored as "?".
    void windows1252()
    {
        QCOMPARE(windows1252ToQString("\x80\x86\x9F\xC4\xD6\xDC\xDF\xB0"), QStringLiteral("€†ŸÄÖÜß°"));
        QCOMPARE(windows1252ToQString("\x81\x8D\x8F\x90\x9D"), QStringLiteral("\u0081\u008D\u008F\u0090\u009D"));
        QCOMPARE(q(qStringToWindows1252(QStringLiteral("→"))), QByteArray("?"));
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

    // Display line n takes image row 0, 3, 4, 5, 6, 7; the switch row 8. Exact text
    // comparison, the last equal entry wins, no match leaves no choice.
    void preselection_data()
    {
        QTest::addColumn<PreselectionRows>("rows"); // line 1, line 2, switch
        QTest::addColumn<QList<int>>("expected");
        QTest::newRow("match") << PreselectionRows{kRpm, kOil, kHorn} << QList<int>{0, 2, 1};
        QTest::newRow("several matches: the last") << PreselectionRows{kTemp, kRpm, kLight}
                                                   << QList<int>{3, 0, 0};
        QTest::newRow("no match") << PreselectionRows{"0CxF0x04x00x03x02x00x01", "0cxf0x04x00x03x02x00x00", kZero}
                                  << QList<int>{-1, -1, -1};
    }
    void preselection()
    {
        QFETCH(PreselectionRows, rows);
        QFETCH(QList<int>, expected);
        const EditorView v = opened(reading(rowsOf(rows[0], rows[1], rows[2])));
        QCOMPARE((QList<int>{v.choice.displayLines[0], v.choice.displayLines[1], v.choice.switchInput}), expected);
        QCOMPARE(v.choice.displayLines[2], -1); // an all-zero row matches nothing here
    }

    // Below layout 181 only the first display line and the sleep option stay; from 181 on the
    // image's values stay as read.
    void layoutGate_data()
    {
        QTest::addColumn<QString>("btversion");
        QTest::addColumn<bool>("locked");
        QTest::newRow("180") << "180" << true;
        QTest::newRow("no number") << "" << true;
        QTest::newRow("181") << "181" << false;
    }
    void layoutGate()
    {
        QFETCH(QString, btversion);
        QFETCH(bool, locked);
        const EditorView v = opened(reading(rowsOf(kOil, kTemp, kHorn), 4, 30), btversion.toStdString());
        QCOMPARE(v.heightTwips, kEditorHeightFull);
        QVERIFY(!v.vehicleEnabled);
        for (bool on : v.listEnabled)
            QCOMPARE(on, !locked);
        QCOMPARE(v.optionEnabled, (std::array<bool, 3>{!locked, !locked, true}));
        QCOMPARE(v.thresholdEnabled, !locked);
        const EditorChoice& c = v.choice;
        if (locked) {
            QCOMPARE((QList<int>{c.displayLines[0], c.displayLines[1], c.switchInput, c.speed, c.switching}),
                     (QList<int>{0, 3, 0, 3, 0}));
            QCOMPARE(c.options, (std::array<bool, 3>{false, false, true}));
            QCOMPARE(c.threshold, std::string("10"));
        } else {
            QCOMPARE((QList<int>{c.displayLines[0], c.displayLines[1], c.switchInput, c.speed, c.switching}),
                     (QList<int>{2, 3, 1, 3, 30}));
            QCOMPARE(c.options, (std::array<bool, 3>{true, true, true}));
            QCOMPARE(c.threshold, std::string("11,5"));
        }
    }

    // What ends the editor while it opens, and the files it leaves.
    void fatalOpening_data()
    {
        QTest::addColumn<OpeningRow>("row");
        const Setup none = [](Folder&) {};
        QTest::newRow("no catalogue")
            << OpeningRow{[](Folder& f) { QFile::remove(f.file("vehicles.inc")); }, "1", "181", 53, false};
        QTest::newRow("vehicle number no number") << OpeningRow{none, "x", "181", 380, false};
        QTest::newRow("vehicle number beyond the list") << OpeningRow{none, "2", "181", 380, false};
        QTest::newRow("image over 2000 bytes")
            << OpeningRow{[](Folder& f) { writeFile(f.file("1A2B3C4D.eep"), QByteArray(2001, 0)); }, "1", "181", 9, false};
        QTest::newRow("malformed vehicle file") << OpeningRow{[](Folder& f) {
            writeFile(f.file("v1.fzd"), QByteArray::fromStdString(CodeDecode("KLEMME15-1-2", kCodecKey) + "\r\n"));
        }, "1", "181", 9, true};
        QTest::newRow("empty switch list below 181") << OpeningRow{[](Folder& f) {
            writeFile(f.file("v1.fzd"), QByteArray::fromStdString(encodeVehicleData(
                                            "Drehzahl-" + kRpm + "-" + kZero + "-DREHZAHL-0-1-DISPLAY")));
        }, "1", "180", 380, true};
        // Speed and switching bytes map through the lists (the fuzz model of the image); one
        // beyond them ends the opening.
        QTest::newRow("speed byte beyond the list") << OpeningRow{[](Folder& f) {
            Bytes image = editorImage();
            image[153] = 5;
            writeFile(f.file("1A2B3C4D.eep"), qbytes(image));
        }, "1", "181", 380, true};
        QTest::newRow("opens") << OpeningRow{none, " 1 ", "181", 0, true};
    }
    void fatalOpening()
    {
        QFETCH(OpeningRow, row);
        Folder folder(editorImage());
        row.setup(folder);
        QCOMPARE(-orError([&] { folder.open(row.ecutyp, row.btversion); return 0; }), row.error);
        QCOMPARE(QFile::exists(folder.file("lastsel.inc")), row.lastsel);
        if (row.lastsel)
            QCOMPARE(folder.bytes("lastsel.inc"), QByteArray(" 1 \r\n"));
    }

    // Choices to image bytes: flags at 128, threshold at 136, switching at 154. The upload copy
    // is always 1023 bytes, over an older longer one; the device image keeps what lies beyond.
    void saveFields_data()
    {
        QTest::addColumn<QList<bool>>("options");
        QTest::addColumn<QString>("threshold");
        QTest::addColumn<int>("switching");
        QTest::addColumn<QList<int>>("bytes"); // 128, 136, 154; {-n}: error n
        QTest::newRow("boxes 0 and 2, 11,5 V, none") << QList<bool>{true, false, true} << "11,5" << 0
                                                     << QList<int>{5, 168, 255};
        QTest::newRow("box 1, 10 V, 30 s") << QList<bool>{false, true, false} << "10" << 30 << QList<int>{2, 144, 30};
        QTest::newRow("threshold too high") << QList<bool>{false, false, false} << "17,1" << 1 << QList<int>{-6};
        QTest::newRow("no switching choice") << QList<bool>{false, false, false} << "10" << -1 << QList<int>{-380};
    }
    void saveFields()
    {
        QFETCH(QList<bool>, options);
        QFETCH(QString, threshold);
        QFETCH(int, switching);
        QFETCH(QList<int>, bytes);
        Bytes image = editorImage();
        image.insert(image.end(), {0xB4, 0xA6, 0x00}); // identification bytes 1023..1025
        Folder folder(image);
        writeFile(folder.file("1A2B3C4D.tmp"), QByteArray(3000, 'x'));
        EditorView v = folder.open();
        v.choice.options = {options[0], options[1], options[2]};
        v.choice.threshold = threshold.toStdString();
        v.choice.switching = switching;
        const int error = -orError([&] { saveEditor(folder.path(), "1A2B3C4D", v, ','); return 0; });
        if (bytes.size() == 1) {
            QCOMPARE(-error, bytes[0]);
            // Stopped inside the upload copy; the device image is as it was.
            QCOMPARE(folder.bytes("1A2B3C4D.eep"), qbytes(image));
            return;
        }
        QCOMPARE(error, 0);
        QCOMPARE(folder.bytes("1A2B3C4D.tmp").size(), 1023);
        QCOMPARE(folder.bytes("1A2B3C4D.eep").mid(1023), QByteArray("\xB4\xA6\x00", 3));
        for (const QString& name : {QString("1A2B3C4D.tmp"), QString("1A2B3C4D.eep")}) {
            const QByteArray b = folder.bytes(name);
            QCOMPARE((QList<int>{quint8(b[128]), quint8(b[136]), quint8(b[154])}), bytes);
        }
    }
};

QTEST_GUILESS_MAIN(TestEditor)
#include "test_editor.moc"
