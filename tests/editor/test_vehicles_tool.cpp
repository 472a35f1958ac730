// veltro-vehicles run as the maintainer runs it: text files as maintainers write them are stored
// coded with CR LF at the end; decoding prints the CR LF text; bad input says why and writes
// nothing.
#include "editor/codec.h"

#include "test_files.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

namespace {
const QByteArray kLines =
    "KLEMME15-18xFExF1x00x00x01x01x00-00x00x00x00x01x00x00x00----\r\n"
    "Drehzahl-0CxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-1-DISPLAY\r\n"
    "Nebel-18xFExF2x00x03x01x04x01-01x00x00x00x00x00x00x00----SCHALTER";
const QByteArray kStored = QByteArray::fromStdString(CodeDecode(kLines.toStdString(), kCodecKey)) + "\r\n";
} // namespace

class TestVehiclesTool : public QObject {
    Q_OBJECT
private slots:
    void run_data()
    {
        QTest::addColumn<QString>("args");   // "@" stands for the folder
        QTest::addColumn<QByteArray>("in");  // written to @/in.txt
        QTest::addColumn<QByteArray>("out"); // what @/out.fzd holds after a success, else a part of stderr
        const QString encode = "encode @/in.txt @/out.fzd";
        const QByteArray drehzahl = "Drehzahl-0CxF0x04x00x03x02x00x00-01x08x00x00x00x00x00x00-DREHZAHL-0-";
        QTest::newRow("encode, CR LF, no end") << encode << kLines << kStored;
        QTest::newRow("encode, LF line ends and at the end") << encode << QByteArray(kLines).replace("\r\n", "\n") + "\n" << kStored;
        QTest::newRow("decode") << "decode @/in.txt" << kStored << kLines;
        QTest::newRow("no arguments") << "" << QByteArray() << QByteArray("usage");
        QTest::newRow("too few fields") << encode << QByteArray("KLEMME15-01-02\r\n") << QByteArray("seven fields");
        QTest::newRow("record the editor cannot match")
            << encode << QByteArray(drehzahl).replace("0CxF0", "0cxF0") + "1-DISPLAY" << QByteArray("upper-case hex");
        QTest::newRow("value above 255") << encode << drehzahl + "256-DISPLAY" << QByteArray("0 to 255");
    }
    void run()
    {
        QFETCH(QString, args);
        QFETCH(QByteArray, in);
        QFETCH(QByteArray, out);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("in.txt"), in));
        QProcess tool;
        tool.start(QStringLiteral(VELTRO_VEHICLES_TOOL), args.replace("@", dir.path()).split(' ', Qt::SkipEmptyParts));
        QVERIFY(tool.waitForFinished(-1) && tool.exitStatus() == QProcess::NormalExit);
        const QByteArray err = tool.readAllStandardError();
        if (QString(QTest::currentDataTag()).startsWith("encode")) {
            QVERIFY2(tool.exitCode() == 0, err.constData());
            QCOMPARE(readFile(dir.filePath("out.fzd")), out);
        } else if (QString(QTest::currentDataTag()) == "decode") {
            QCOMPARE(tool.exitCode(), 0);
            QCOMPARE(tool.readAllStandardOutput(), out);
        } else {
            QVERIFY(tool.exitCode() != 0);
            QVERIFY2(err.contains(out), err.constData());
            QVERIFY(!QFile::exists(dir.filePath("out.fzd")));
        }
    }
};

QTEST_GUILESS_MAIN(TestVehiclesTool)
#include "test_vehicles_tool.moc"
