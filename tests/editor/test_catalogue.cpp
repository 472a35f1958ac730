#include "editor/catalogue.h"
#include "editor/codec.h"
#include "editor/config_image.h"
#include "editor/demo_catalogue.h"
#include "editor/vehicle_image.h"
#include "util/runtime_error.h"

#include <QDir>
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

QByteArray readBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

std::string std8(const QByteArray& b) { return std::string(b.constData(), std::size_t(b.size())); }

const std::string kZeroRow = "00x00x00x00x00x00x00x00";

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
    void catalogue_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QStringList>("fields"); // name, file, name, file ...
        QTest::addColumn<int>("error");
        QTest::newRow("quoted") << QByteArray("\"Kombi 1.6\",\"k16.fzd\"\r\n\"Traktor\",\"t.fzd\"\r\n")
                                << QStringList{"Kombi 1.6", "k16.fzd", "Traktor", "t.fzd"} << 0;
        QTest::newRow("comma inside quotes") << QByteArray("\"Pritsche 3.0, Euro 6\",\"p30.fzd\"\r\n")
                                             << QStringList{"Pritsche 3.0, Euro 6", "p30.fzd"} << 0;
        QTest::newRow("leading blanks, unquoted") << QByteArray("  Reisemobil K7,   k7.fzd  \r\n")
                                                  << QStringList{"Reisemobil K7", "k7.fzd"} << 0;
        QTest::newRow("blanks inside quotes kept") << QByteArray("\" Van \" ,\"v.fzd\"")
                                                   << QStringList{" Van ", "v.fzd"} << 0;
        QTest::newRow("line end separates fields") << QByteArray("\"Van\"\r\n\"v.fzd\"\r\n")
                                                   << QStringList{"Van", "v.fzd"} << 0;
        QTest::newRow("LF line ends, no end at the last") << QByteArray("a,b\nc,d")
                                                         << QStringList{"a", "b", "c", "d"} << 0;
        QTest::newRow("blank lines at the end") << QByteArray("a,b\r\n\r\n  \r\n") << QStringList{"a", "b"} << 0;
        QTest::newRow("empty field") << QByteArray("\"\",x.fzd") << QStringList{"", "x.fzd"} << 0;
        QTest::newRow("empty file") << QByteArray() << QStringList{} << 0;
        QTest::newRow("record without a file") << QByteArray("\"Kombi\",\"k.fzd\"\r\n\"Traktor\"\r\n")
                                               << QStringList{} << 62;
    }
    void catalogue()
    {
        QFETCH(QByteArray, text);
        QFETCH(QStringList, fields);
        QFETCH(int, error);
        QTemporaryDir dir;
        const QString path = dir.filePath("vehicles.inc");
        writeBytes(path, text);
        std::vector<CatalogueEntry> entries;
        QCOMPARE(errorNumber([&] { entries = readCatalogue(path.toStdString()); }), error);
        QStringList got;
        for (const CatalogueEntry& e : entries)
            got << QString::fromStdString(e.name) << QString::fromStdString(e.dataFile);
        QCOMPARE(got, fields);
    }

    void catalogueMissing()
    {
        QTemporaryDir dir;
        QCOMPARE(errorNumber([&] { readCatalogue(dir.filePath("vehicles.inc").toStdString()); }), 53);
    }

    // Decoded vehicle data: which lines are accepted and what each kind contributes.
    void vehicleLines_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("klemme15A");
        QTest::addColumn<int>("displayValues");
        QTest::addColumn<int>("switches");
        QTest::addColumn<int>("lines");
        QTest::newRow("ignition with three fields") << QByteArray("KLEMME15-01x02-03x04") << 9 << "" << 0 << 0 << 0;
        QTest::newRow("ignition with four more -") << QByteArray("KLEMME15-01x02-03x04----") << 0 << "01x02" << 0 << 0 << 1;
        QTest::newRow("empty text") << QByteArray() << 0 << "" << 0 << 0 << 0;
        QTest::newRow("empty line") << QByteArray("a-b-c-d-e-f-DISPLAY\r\n\r\na-b-c-d-e-f-DISPLAY") << 9 << "" << 0 << 0 << 0;
        QTest::newRow("line end at the end") << QByteArray("a-b-c-d-e-f-DISPLAY\r\n") << 9 << "" << 0 << 0 << 0;
        QTest::newRow("LF alone does not end a line") << QByteArray("a-b-c-d-e-f-DISPLAY\na-b-c-d-e-f-DISPLAY") << 0 << "" << 0 << 0 << 1;
        QTest::newRow("kinds are case-sensitive") << QByteArray("klemme15-1-2-3-4-5-display") << 0 << "" << 0 << 0 << 1;
        QTest::newRow("a line of two kinds") << QByteArray("KLEMME15-01-02-T-4-5-DISPLAY") << 0 << "01" << 1 << 0 << 1;
        QTest::newRow("more than seven fields") << QByteArray("n-a-b-c-d-e-SCHALTER-extra") << 0 << "" << 0 << 1 << 1;
        QTest::newRow("sample vehicle") << QByteArray(kVehicle) << 0 << "18xFExF1x00x00x01x01x00" << 3 << 2 << 7;
    }
    void vehicleLines()
    {
        QFETCH(QByteArray, text);
        QFETCH(int, error);
        QFETCH(QString, klemme15A);
        QFETCH(int, displayValues);
        QFETCH(int, switches);
        QFETCH(int, lines);
        VehicleDescription v;
        QCOMPARE(errorNumber([&] { v = parseVehicleData(std8(text)); }), error);
        QCOMPARE(QString::fromStdString(v.klemme15A), klemme15A);
        QCOMPARE(int(v.displayValues.size()), displayValues);
        QCOMPARE(int(v.switches.size()), switches);
        QCOMPARE(int(v.lineNames.size()), lines);
    }

    void vehicleFields()
    {
        const VehicleDescription v = parseVehicleData(kVehicle);
        QCOMPARE(v.feldregenerationA, std::string("18xFDx7Cx00x02x01x02x00"));
        QCOMPARE(v.feldregenerationB, std::string("00x00x00x00x04x00x00x00"));
        const DisplayValue& oil = v.displayValues[1];
        QCOMPARE(oil.name, std::string("\xD6ldruck"));
        QCOMPARE(oil.recordB, std::string("04x01x00x00x00x00x00x00"));
        QCOMPARE(oil.text, std::string("\xD6LDRUCK "));
        QCOMPARE(oil.valueY, std::string("1"));
        QCOMPARE(oil.valueX, std::string("3"));
        QCOMPARE(v.switches[1].recordA, std::string("18xFExF2x00x03x01x04x01"));
        QCOMPARE(v.lineNames.front(), std::string("KLEMME15"));
        QCOMPARE(windows1252ToQString(oil.text), QStringLiteral("ÖLDRUCK "));
    }

    void loadVehicle()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("v.fzd");
        QCOMPARE(loadVehicleData(path.toStdString()), VehicleDescription{});
        writeBytes(path, QByteArray::fromStdString(encodeVehicleData(kVehicle)));
        QCOMPARE(readBytes(path).right(2), QByteArray("\r\n"));
        QCOMPARE(loadVehicleData(path.toStdString()), parseVehicleData(kVehicle));
        writeBytes(path, QByteArray::fromStdString(CodeDecode("KLEMME15-1-2", kCodecKey) + "\r\n"));
        QCOMPARE(errorNumber([&] { loadVehicleData(path.toStdString()); }), 9);
        QCOMPARE(errorNumber([] { encodeVehicleData("KLEMME15-1-2"); }), 9);
    }

    void lastSelection_data()
    {
        QTest::addColumn<int>("number");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("3") << 3 << QByteArray(" 3 \r\n");
        QTest::newRow("0") << 0 << QByteArray(" 0 \r\n");
        QTest::newRow("12") << 12 << QByteArray(" 12 \r\n");
        QTest::newRow("-1") << -1 << QByteArray("-1 \r\n");
    }
    void lastSelection()
    {
        QFETCH(int, number);
        QFETCH(QByteArray, bytes);
        QTemporaryDir dir;
        const QString path = dir.filePath("lastsel.inc");
        writeBytes(path, QByteArray(40, 'x'));
        writeLastSelection(path.toStdString(), number);
        QCOMPARE(readBytes(path), bytes);
    }

    // The editor's preselection finds the last display value whose record A equals the row.
    void preselection_data()
    {
        QTest::addColumn<QString>("row");
        QTest::addColumn<int>("display");
        QTest::addColumn<int>("switchInput");
        QTest::newRow("last of two equal records") << "0CxF0x04x00x03x02x00x00" << 2 << -1;
        QTest::newRow("single match") << "18xFExEFx00x03x01x00x00" << 1 << -1;
        QTest::newRow("empty image row") << QString::fromStdString(kZeroRow) << -1 << 0;
        QTest::newRow("lower case never matches") << "18xfexefx00x03x01x00x00" << -1 << -1;
        QTest::newRow("switch") << "18xFExF2x00x03x01x04x01" << -1 << 1;
    }
    void preselection()
    {
        QFETCH(QString, row);
        QFETCH(int, display);
        QFETCH(int, switchInput);
        const VehicleDescription v = parseVehicleData(kVehicle);
        QCOMPARE(matchingDisplayValue(v, row.toStdString()), display);
        QCOMPARE(matchingSwitch(v, row.toStdString()), switchInput);
    }

    // Choices that the save cannot turn into bytes, and the field where it stops.
    void choiceErrors_data()
    {
        QTest::addColumn<int>("line");        // display line given a bad index, -1 none
        QTest::addColumn<int>("switchInput");
        QTest::addColumn<QString>("threshold");
        QTest::addColumn<int>("speed");
        QTest::addColumn<int>("error");
        QTest::newRow("all fine") << -1 << 1 << "11,5" << 3 << 0;
        QTest::newRow("display line without a choice") << 2 << 1 << "11,5" << 3 << 380;
        QTest::newRow("no switch") << -1 << -1 << "11,5" << 3 << 380;
        QTest::newRow("threshold too high") << -1 << 1 << "17,5" << 3 << 6;
        QTest::newRow("threshold not a number") << -1 << 1 << "hoch" << 3 << 13;
        QTest::newRow("no speed") << -1 << 1 << "11,5" << -1 << 380;
    }
    void choiceErrors()
    {
        QFETCH(int, line);
        QFETCH(int, switchInput);
        QFETCH(QString, threshold);
        QFETCH(int, speed);
        QFETCH(int, error);
        const VehicleDescription v = parseVehicleData(kVehicle);
        EditorChoice choice;
        choice.displayLines = {0, 1, 2, 0, 1, 2};
        if (line >= 0)
            choice.displayLines[line] = -1;
        choice.switchInput = switchInput;
        choice.threshold = threshold.toStdString();
        choice.speed = speed;
        choice.switching = 0;
        Bytes file;
        QCOMPARE(errorNumber([&] { writeImage(file, VehicleImageSource(v, choice, ',')); }), error);
    }

    // The bytes the save takes from the vehicle's lines and the options.
    void savedFromChoice()
    {
        const VehicleDescription v = parseVehicleData(kVehicle);
        EditorChoice choice;
        choice.displayLines = {1, 0, 0, 0, 0, 2};
        choice.switchInput = 1;
        choice.options = {true, false, true};
        choice.threshold = "11,5";
        choice.speed = 3;
        choice.switching = 0;
        Bytes file;
        writeImage(file, VehicleImageSource(v, choice, ','));
        const ImageReading r = readImage(file);
        QCOMPARE(r.rows[0], std::string("18xFExEFx00x03x01x00x00"));
        QCOMPARE(r.rows[1], v.klemme15A);
        QCOMPARE(r.rows[2], v.feldregenerationA);
        QCOMPARE(r.rows[7], std::string("0CxF0x04x00x03x02x00x00"));
        QCOMPARE(r.rows[8], v.switches[1].recordA);
        QCOMPARE(recordRow({file[72], file[73], file[74], file[75], file[76], file[77], file[78], file[79]}), v.klemme15B);
        QCOMPARE(int(r.flags), 5);
        QCOMPARE(int(r.threshold), 168);
        QCOMPARE(int(r.speed), 4);
        QCOMPARE(int(r.switching), 255);
        QCOMPARE(int(file[137]), 3);  // line 1 value X ("Öldruck" field 5)
        QCOMPARE(int(file[145]), 1);  // and its value Y
        QCOMPARE(std::string(file.begin() + 512, file.begin() + 520), std::string("\xD6LDRUCK "));
        QCOMPARE(std::string(file.begin() + 552, file.begin() + 560), std::string("DREHZ.  "));
    }

    // Every sample vehicle: the stored file decodes to its text source, describes a usable
    // vehicle, and a configuration written from it reads back as the rows it was made of.
    void demoCatalogue()
    {
        const QString demo = QString::fromStdString(demoCatalogueDir());
        const auto entries = readCatalogue((demo + "/vehicles.inc").toStdString());
        QVERIFY(entries.size() >= 3);
        for (const CatalogueEntry& entry : entries) {
            const QString name = QString::fromStdString(entry.dataFile);
            const QString path = demo + "/" + name;
            QVERIFY2(QFile::exists(path), qPrintable(name));
            QByteArray source = readBytes(demo + "/text/" + QFileInfo(name).completeBaseName() + ".txt");
            while (source.endsWith("\r\n"))
                source.chop(2);
            QCOMPARE(QByteArray::fromStdString(CodeDecode(txt_ReadAll(path.toStdString()), kCodecKey)), source);

            const VehicleDescription v = loadVehicleData(path.toStdString());
            QVERIFY2(v.displayValues.size() >= 6, qPrintable(name));
            QVERIFY2(!v.switches.empty() && !v.klemme15A.empty() && !v.feldregenerationA.empty(), qPrintable(name));

            EditorChoice choice;
            for (int k = 0; k < kDisplayLineCount; ++k)
                choice.displayLines[k] = int(v.displayValues.size()) - 1 - k;
            choice.switchInput = int(v.switches.size()) - 1;
            choice.threshold = "11,5";
            choice.speed = 0;
            choice.switching = 5;
            Bytes file;
            writeImage(file, VehicleImageSource(v, choice, ','));
            const ImageReading r = readImage(file);
            for (int k = 0; k < kDisplayLineCount; ++k) {
                const int slot = displayLineSlot(k);
                QCOMPARE(r.rows[slot], v.displayValues[choice.displayLines[k]].recordA);
                QCOMPARE(matchingDisplayValue(v, r.rows[slot]), choice.displayLines[k]);
            }
            QCOMPARE(matchingSwitch(v, r.rows[8]), choice.switchInput);
        }
    }

    void installDemo()
    {
        QTemporaryDir source;
        QTemporaryDir target;
        writeBytes(source.filePath("vehicles.inc"), "\"A\",\"a.fzd\"\r\n");
        writeBytes(source.filePath("a.fzd"), "coded\r\n");
        QVERIFY(QDir(source.path()).mkdir("text"));
        writeBytes(target.filePath("vehicles.inc"), "mine");
        const QString program = target.filePath("home");
        QCOMPARE(installDemoCatalogue(source.path().toStdString(), program.toStdString()), 2);
        QCOMPARE(installDemoCatalogue(source.path().toStdString(), target.path().toStdString()), 1);
        QCOMPARE(readBytes(target.filePath("vehicles.inc")), QByteArray("mine"));
        QCOMPARE(readBytes(target.filePath("a.fzd")), QByteArray("coded\r\n"));
        QVERIFY(!QFileInfo::exists(target.filePath("text")));
        QCOMPARE(installDemoCatalogue(source.path().toStdString(), target.path().toStdString()), 0);
        QCOMPARE(errorNumber([&] { installDemoCatalogue(source.filePath("none").toStdString(), program.toStdString()); }), 53);
    }
};

QTEST_GUILESS_MAIN(TestCatalogue)
#include "test_catalogue.moc"
