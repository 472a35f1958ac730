// veltro-vehicles run as the maintainer runs it.
#include "editor/codec.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;

namespace {

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

Run runTool(const QStringList& args)
{
    QProcess p;
    p.start(QStringLiteral(VELTRO_VEHICLES_TOOL), args);
    p.waitForFinished(30000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput(),
            p.readAllStandardError()};
}

void writeBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

QByteArray readBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

const QByteArray kLines =
    "KLEMME15-18xFExF1x00x00x01x01x00-00x00x00x00x01x00x00x00----\r\n"
    "Drehzahl-0CxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-1-DISPLAY\r\n"
    "Nebel-18xFExF2x00x03x01x04x01-01x00x00x00x00x00x00x00----SCHALTER";

} // namespace

class TestVehiclesTool : public QObject {
    Q_OBJECT
private slots:
    // Text files as maintainers write them: the stored form is always the CR LF text, coded,
    // plus CR LF.
    void encode_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("CR LF, no end") << kLines;
        QTest::newRow("CR LF at the end") << kLines + "\r\n";
        QTest::newRow("LF line ends") << QByteArray(kLines).replace("\r\n", "\n") + "\n";
    }
    void encode()
    {
        QFETCH(QByteArray, text);
        QTemporaryDir dir;
        writeBytes(dir.filePath("v.txt"), text);
        const Run enc = runTool({"encode", dir.filePath("v.txt"), dir.filePath("v.fzd")});
        QVERIFY2(enc.exitCode == 0, enc.err.constData());
        const QByteArray stored = readBytes(dir.filePath("v.fzd"));
        QCOMPARE(stored, QByteArray::fromStdString(CodeDecode(kLines.toStdString(), kCodecKey)) + "\r\n");

        const Run dec = runTool({"decode", dir.filePath("v.fzd")});
        QCOMPARE(dec.exitCode, 0);
        QCOMPARE(dec.out, kLines);
    }

    void badInput_data()
    {
        QTest::addColumn<QStringList>("args");   // "@" stands for the temporary folder
        QTest::addColumn<QByteArray>("text");    // written to @/in.txt
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("no arguments") << QStringList{} << QByteArray() << QByteArray("usage");
        QTest::newRow("unknown command") << QStringList{"pack", "@/in.txt"} << QByteArray("x") << QByteArray("usage");
        QTest::newRow("decode a missing file") << QStringList{"decode", "@/none.fzd"} << QByteArray() << QByteArray("no such file");
        QTest::newRow("decode a one-byte file") << QStringList{"decode", "@/in.txt"} << QByteArray("x") << QByteArray("shorter than two bytes");
        QTest::newRow("too few fields") << QStringList{"encode", "@/in.txt", "@/out.fzd"} << QByteArray("KLEMME15-01-02\r\n") << QByteArray("seven fields");
        QTest::newRow("empty line") << QStringList{"encode", "@/in.txt", "@/out.fzd"} << kLines + "\r\n\r\n" + kLines << QByteArray("seven fields");
        QTest::newRow("record the editor cannot match") << QStringList{"encode", "@/in.txt", "@/out.fzd"}
            << QByteArray("Drehzahl-0cxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-1-DISPLAY") << QByteArray("upper-case hex");
        QTest::newRow("value above 255") << QStringList{"encode", "@/in.txt", "@/out.fzd"}
            << QByteArray("Drehzahl-0CxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-256-DISPLAY") << QByteArray("0 to 255");
        QTest::newRow("empty text") << QStringList{"encode", "@/in.txt", "@/out.fzd"} << QByteArray("\r\n") << QByteArray("empty");
    }
    void badInput()
    {
        QFETCH(QStringList, args);
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, message);
        QTemporaryDir dir;
        writeBytes(dir.filePath("in.txt"), text);
        for (QString& a : args)
            a.replace("@", dir.path());
        const Run run = runTool(args);
        QVERIFY(run.exitCode != 0);
        QVERIFY2(run.err.contains(message), run.err.constData());
        QVERIFY(!QFile::exists(dir.filePath("out.fzd")));
    }
};

QTEST_GUILESS_MAIN(TestVehiclesTool)
#include "test_vehicles_tool.moc"
