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

// Something with a text property, like a line edit.
struct TextBox {
    QString value;
    QString text() const { return value; }
    void setText(const QString& t) { value = t; }
};

} // namespace

class TestCatalogue : public QObject {
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
        QTest::newRow("GetBit 5, 0") << outcome([] { return GetBit(5, 0); }) << QByteArray("1");
        QTest::newRow("GetBit 255, 8") << outcome([] { return GetBit(255, 8); }) << QByteArray("error 5");
    }
    void results()
    {
        QFETCH(QByteArray, result);
        QFETCH(QByteArray, expected);
        QCOMPARE(result, expected);
    }

    void lastSelection()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("lastsel.inc");
        QVERIFY(writeFile(path, QByteArray(40, 'x')));
        writeLastSelection(path.toStdString(), 3);
        QCOMPARE(readFile(path), QByteArray(" 3 \r\n"));
    }

    // Stored texts shown as Unicode; what the code page lacks is stored as "?".
    void windows1252()
    {
        QCOMPARE(windows1252ToQString("\x80\x86\x9F\xC4\xD6\xDC\xDF\xB0"), QStringLiteral("€†ŸÄÖÜß°"));
        QCOMPARE(windows1252ToQString("\x81\x8D\x8F\x90\x9D"), QStringLiteral("\u0081\u008D\u008F\u0090\u009D"));
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
