// veltro-vehicles run as the maintainer runs it.
#include "editor/codec.h"

#include "test_files.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

namespace {

// Runs the tool with "@" in its arguments standing for `dir`; the exit code, -1 after a crash.
int runTool(QProcess& p, QStringList args, const QString& dir)
{
    for (QString& a : args)
        a.replace("@", dir);
    p.start(QStringLiteral(VELTRO_VEHICLES_TOOL), args);
    p.waitForFinished(30000);
    return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

const QByteArray kLines =
    "KLEMME15-18xFExF1x00x00x01x01x00-00x00x00x00x01x00x00x00----\r\n"
    "Drehzahl-0CxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-1-DISPLAY\r\n"
    "Nebel-18xFExF2x00x03x01x04x01-01x00x00x00x00x00x00x00----SCHALTER";

} // namespace

class TestVehiclesTool : public QObject {
    Q_OBJECT
private slots:
    // Text files as maintainers write them: the stored form is the CR LF text, coded, and CR LF;
    // decoding prints the CR LF text.
    void encodeDecode_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("CR LF, no end") << kLines;
        QTest::newRow("LF line ends and at the end") << QByteArray(kLines).replace("\r\n", "\n") + "\n";
    }
    void encodeDecode()
    {
        QFETCH(QByteArray, text);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("v.txt"), text));
        QProcess enc, dec;
        QVERIFY2(runTool(enc, {"encode", "@/v.txt", "@/v.fzd"}, dir.path()) == 0, enc.readAllStandardError().constData());
        QCOMPARE(readFile(dir.filePath("v.fzd")), QByteArray::fromStdString(CodeDecode(kLines.toStdString(), kCodecKey)) + "\r\n");
        QCOMPARE(runTool(dec, {"decode", "@/v.fzd"}, dir.path()), 0);
        QCOMPARE(dec.readAllStandardOutput(), kLines);
    }

    void badInput_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QByteArray>("text");    // written to @/in.txt
        QTest::addColumn<QByteArray>("message");
        const QStringList encode{"encode", "@/in.txt", "@/out.fzd"};
        QTest::newRow("no arguments") << QStringList{} << QByteArray() << QByteArray("usage");
        QTest::newRow("decode a missing file") << QStringList{"decode", "@/none.fzd"} << QByteArray() << QByteArray("no such file");
        QTest::newRow("decode one byte") << QStringList{"decode", "@/in.txt"} << QByteArray("x") << QByteArray("shorter than two bytes");
        QTest::newRow("too few fields") << encode << QByteArray("KLEMME15-01-02\r\n") << QByteArray("seven fields");
        QTest::newRow("record the editor cannot match") << encode
            << QByteArray("Drehzahl-0cxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-1-DISPLAY") << QByteArray("upper-case hex");
        QTest::newRow("value above 255") << encode
            << QByteArray("Drehzahl-0CxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-256-DISPLAY") << QByteArray("0 to 255");
        QTest::newRow("empty text") << encode << QByteArray("\r\n") << QByteArray("empty");
    }
    void badInput()
    {
        QFETCH(QStringList, args);
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, message);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("in.txt"), text));
        QProcess run;
        QVERIFY(runTool(run, args, dir.path()) != 0);
        const QByteArray err = run.readAllStandardError();
        QVERIFY2(err.contains(message), err.constData());
        QVERIFY(!QFile::exists(dir.filePath("out.fzd")));
    }
};

QTEST_GUILESS_MAIN(TestVehiclesTool)
#include "test_vehicles_tool.moc"
