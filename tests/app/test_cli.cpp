#include "app/cli.h"
#include "app/history.h"
#include "editor/config_image.h"
#include "editor/demo_catalogue.h"
#include "flash/transfer.h"
#include "sim_ports.h"
#include "test_files.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

#include <QThread>

#include <map>
#include <sstream>
#include <thread>

using namespace veltro;
using namespace veltro::test;

namespace {

// The editor's image for the demo's vehicle 1 (Norrik NT 120); its sixth line is a record of
// vehicle 0 only.
Bytes editorImage()
{
    ConfigImage image;
    const char* const lines[kDisplayLineCount] = {"0CxF0x04x00x03x02x00x00", "18xFExEEx00x00x01x00x00",
                                                  "18xFExE5x00x00x04x00x00", "18xFExF7x00x06x02x00x00",
                                                  "18xFExFFx00x01x01x00x00", "18xFExF6x00x01x01x00x00"};
    for (int k = 0; k < kDisplayLineCount; ++k)
        image.recordA[displayLineSlot(k)] = hextobytearray(lines[k]);
    image.switchA = hextobytearray("18xFEx40x00x01x01x00x02");
    image.flags = FlagIgnitionOffDisplay | FlagSleepAfter24h;
    image.threshold = 168;
    image.speed = 3;
    image.switching = 5;
    Bytes file;
    writeImage(file, image);
    return file;
}

const QString kShownTail = "Anzeigegeschwindigkeit: MITTEL\nAutomatische Umschaltung: Nach 5 Sekunden umschalten\n"
                           "Unterspannungsschwelle: 11,5 V\nAnzeige \"bei Zündung aus\" aktiv: ja\n"
                           "Warnung Unterspannung aktiv: nein\nSleepmodus nach 24h aktivieren (Strom sparen): ja\n";

} // namespace

// Controllers on 6 and 7 (7 never finishes the bootloader handshake), a silent port on 2.
// The readout rows also get a controller on 3 whose data block has a wrong checksum, one on 4
// that does not answer the word readout and one on 5 whose data block is cut short.
// FILE stands for a 300-byte file and HOME for the program folder.
// The config rows get the demo catalogue in HOME. IMAGE is editorImage() with the vehicle
// number in byte 1014 as identify saves it. OVER is editorImage() padded to one byte more than
// the reader's 2000. MISSING does not exist. A row tagged
// ", removed NAME" runs without HOME/NAME.
class TestCli : public QObject {
    Q_OBJECT
private slots:
    void initTestCase()
    {
        qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
        qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
    }

    // The help lists each command on exactly one line, and the exit codes.
    void help()
    {
        std::ostringstream stdOut, stdErr;
        QCOMPARE(runCli({"--help"}, stdOut, stdErr), 0);
        QCOMPARE(QString::fromStdString(stdErr.str()), QString());
        const QStringList lines = QString::fromStdString(stdOut.str()).split('\n', Qt::SkipEmptyParts);
        const QStringList commands{"ports", "identify --port N", "flash-firmware FILE --port N",
                                   "upload-config FILE --port N", "readout --port N",
                                   "config show FILE [--vehicle N]", "--version"};
        for (const QString& command : commands)
            QVERIFY2(lines.filter(QRegularExpression("^\\s*" + QRegularExpression::escape(command) + "(\\s|$)")).size() == 1,
                     qPrintable(command + " not on exactly one line of:\n" + lines.join('\n')));
        QVERIFY2(lines.filter(QRegularExpression("^exit codes: 0 success, 1 .*failed, 2 wrong arguments$")).size() == 1,
                 qPrintable(lines.join('\n')));
    }

    void commands_data()
    {
        QTest::addColumn<QString>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err"); // starts of stderr lines in order, the last one starts the last line
        QTest::newRow("ports") << "ports" << 0
                               << "COM2 verfügbar\nVELTRO FW V166 (COMPORT: 6)\nVELTRO FW V166 (COMPORT: 7)\n" << "";
        QTest::newRow("identify") << "identify --port 6" << 0
                                  << "Seriennummer: 1A2B3C4D\nFirmware: 166\nHardware: 3\nLayout: 180\n"
                                     "Datei: HOME/1A2B3C4D.eep\n"
                                  << "CHECKSUMME OK - VERBUNDEN!";
        QTest::newRow("flash-firmware")
            << "flash-firmware FILE --port 6" << 0 << ""
            << "auf Reset warten...\nBlöcke gesamt: 3\n100 % übertragen!\nErfolgreich geflasht!";
        QTest::newRow("upload-config") << "upload-config FILE --port 6" << 0 << ""
                                       << "auf Controllerreset warten...\nBlöcke gesamt: 3\nErfolgreich übertragen!";
        QTest::newRow("version") << "--version" << 0 << "veltro-cli 1.05\n" << "";
        QTest::newRow("readout") << "readout --port 6" << 0
                                 << "SERIENNUMMER: 1073E0\nHerstellungsdatum des Gerätes: 7.3.2024\n"
                                    "Lambda-CAL: &H2A4C\nWort: -256\n"
                                 << "CHECKSUMME OK - DATEN GELADEN!";
        // Failures
        // A folder where the image file should go: nothing can be written there.
        QTest::newRow("identify, image not saved")
            << "identify --port 6" << 1 << "Seriennummer: 1A2B3C4D\nFirmware: 166\nHardware: 3\nLayout: 180\n"
            << "CHECKSUMME OK - VERBUNDEN!\nAbbild konnte nicht gespeichert werden: HOME/1A2B3C4D.eep";
        QTest::newRow("silent controller") << "identify --port 2" << 1 << "" << "ERROR";
        QTest::newRow("no port given") << "identify" << 2 << "" << "identify: --port N";
        QTest::newRow("unknown command") << "frobnicate" << 2 << "" << "usage: veltro-cli\n  upload-config\nexit codes:";
        QTest::newRow("readout, number without port") << "readout --port 8" << 1 << "" << "ERROR (Port nicht vorhanden)";
        // The status text of a bad block is its last byte, as in the window's status bar.
        QTest::newRow("readout, wrong checksum") << "readout --port 3" << 1 << "" << "77";
        QTest::newRow("readout, no word") << "readout --port 4" << 1
                                          << "SERIENNUMMER: A5BDF\nHerstellungsdatum des Gerätes: 5.11.2023\n"
                                             "Lambda-CAL: &H003C\n"
                                          << "CHECKSUMME OK - DATEN GELADEN!\nERROR";
        QTest::newRow("readout, block cut short") << "readout --port 5" << 1 << "" << "ERROR0";
        QTest::newRow("readout, port out of range") << "readout --port 100" << 2 << "" << "readout: --port N";
        QTest::newRow("port list with a word") << "identify --port 6,x" << 2 << "" << "identify: --port N";
        QTest::newRow("--all and --port") << "flash-firmware FILE --all --port 6" << 2 << "" << "flash-firmware: --port N";
        QTest::newRow("unknown option") << "identify --port 6 --frob" << 2 << "" << "identify: unbekannte Option --frob";
        QTest::newRow("no handshake") << "upload-config FILE --port 7" << 1 << "" << "Handshake fehlgeschlagen!";
        // Refused before the bootloader is woken (the controller is checked untouched below).
        QTest::newRow("firmware that is a page") << "flash-firmware PAGE --port 6" << 1 << ""
                                                 << "PAGE: Abbruch: der Server hat eine Textseite";
        QTest::newRow("firmware that is a page, two ports") << "flash-firmware PAGE --port 6,7" << 1 << ""
                                                            << "PAGE: Abbruch: der Server hat eine Textseite";
        QTest::newRow("missing file") << "flash-firmware /nonexistent/fw.bin --port 6" << 1 << ""
                                      << "/nonexistent/fw.bin: Datei nicht gefunden";
        QTest::newRow("config show")
            << "config show IMAGE" << 0
            << "Fahrzeug laut Abbild: 1 Norrik Traktor NT 120 (ab 2016)\nAnzeigezeile 1: Motordrehzahl\n"
               "Anzeigezeile 2: Kühlwassertemperatur\nAnzeigezeile 3: Betriebsstunden\n"
               "Anzeigezeile 4: Batteriespannung\nAnzeigezeile 5: AdBlue Füllstand\n"
               "Anzeigezeile 6: 18xFExF6x00x01x01x00x00 (kein Eintrag in nt120.fzd)\n"
               "Schalteingang: Arbeitsscheinwerfer\n" + kShownTail
            << "";
        // The reader takes an empty file as all zeros; the command says that it did.
        QString zeroLines;
        for (int line = 1; line <= 6; ++line)
            zeroLines += QString("Anzeigezeile %1: 00x00x00x00x00x00x00x00\n").arg(line);
        QTest::newRow("config show, empty file")
            << "config show EMPTY" << 0
            << "Fahrzeug: keines angegeben (--vehicle N), Datensätze in Hex\n" + zeroLines
               + "Schalteingang: 00x00x00x00x00x00x00x00\nAnzeigegeschwindigkeit: 0 (kein Eintrag der Liste)\n"
                 "Automatische Umschaltung: Keine Autoumschaltung\nUnterspannungsschwelle: 0,9 V\n"
                 "Anzeige \"bei Zündung aus\" aktiv: nein\nWarnung Unterspannung aktiv: nein\n"
                 "Sleepmodus nach 24h aktivieren (Strom sparen): nein\n"
            << "EMPTY: nur 0 Bytes, der Rest wird als 0 gelesen";
        QTest::newRow("config show, too large") << "config show OVER" << 1 << ""
                                                << "OVER: kein Konfigurationsabbild, mehr als 2000 Bytes";
        QTest::newRow("config show, missing file") << "config show MISSING" << 1 << ""
                                                   << "MISSING: Datei nicht gefunden";
        QTest::newRow("config show, vehicle beyond the catalogue")
            << "config show IMAGE --vehicle 4" << 1 << "" << "Fahrzeug 4 steht nicht in HOME/vehicles.inc (4 Fahrzeuge";
        QTest::newRow("config show, removed vehicles.inc") << "config show IMAGE" << 1 << ""
                                                           << "HOME/vehicles.inc: Datei nicht gefunden";
        QTest::newRow("config show, --vehicle without number")
            << "config show IMAGE --vehicle" << 2 << "" << "config show: --vehicle\nusage: veltro-cli config show";
    }
    void commands()
    {
        QFETCH(QString, args);
        QFETCH(int, code);
        QFETCH(QString, out);
        QFETCH(QString, err);
        SimPorts ports;
        ports.addSilent(2);
        auto& c = ports.add(6);
        ports.add(7).setBootFaults({.noHandshake = true});
        c.setManufacturingDate(2024, 3, 7);
        c.setDataSerialByte(0x10); // 16: the first byte with two digits
        c.setLambdaCalibration(0x2A4C);
        c.setWord(0xFF00); // the top bit set: reads negative
        if (args.startsWith("readout")) { // left out of the port scan row
            auto& badBlock = ports.add(3);
            badBlock.setDataBlockByte(127, 77);
            badBlock.setFaults(sim::Request::DataBlock, {.wrongChecksum = true});
            ports.add(4).setFaults(sim::Request::Word, {.silent = true});
            ports.add(5).setFaults(sim::Request::DataBlock, {.shortAnswer = std::size_t(60)});
        }
        const QString home = ports.homePath();
        const std::map<QString, QString> files = {
            {"FILE", home + "/fw.bin"},     {"EMPTY", home + "/empty.bin"}, {"PAGE", home + "/page.bin"},
            {"IMAGE", home + "/image.eep"}, {"OVER", home + "/over.eep"},
            {"MISSING", home + "/missing.eep"}};
        QVERIFY(writeFile(files.at("FILE"), QByteArray(300, 'x')));
        QVERIFY(writeFile(files.at("EMPTY"), QByteArray()));
        QVERIFY(writeFile(files.at("PAGE"), "<html><body>404</body></html>"));
        Bytes image = editorImage();
        if (args.startsWith("config")) {
            QVERIFY(installDemoCatalogue(demoCatalogueDir(), ports.home()) > 0);
            if (const QString tag = QTest::currentDataTag(); tag.contains(", removed "))
                QVERIFY(QFile::remove(ports.homePath() + "/" + tag.section(", removed ", 1)));
            Bytes over = image;
            over.resize(2001);
            QVERIFY(writeFile(files.at("OVER"), qbytes(over)));
            image[1014] = 1;
            QVERIFY(writeFile(files.at("IMAGE"), qbytes(image)));
        }
        if (QString(QTest::currentDataTag()).contains("not saved"))
            QVERIFY(QDir(ports.homePath()).mkdir("1A2B3C4D.eep"));
        std::vector<std::string> a;
        for (const QString& s : args.split(' ', Qt::SkipEmptyParts))
            a.push_back((files.count(s) ? files.at(s) : s).toStdString());
        for (const auto& [name, path] : files)
            err.replace(name + ":", path + ":");
        std::ostringstream stdOut, stdErr;
        QCOMPARE(runCli(a, stdOut, stdErr), code);
        QCOMPARE(QString::fromStdString(stdOut.str()), out.replace("HOME", ports.homePath()));
        err.replace("HOME", ports.homePath());
        const QStringList lines = QString::fromStdString(stdErr.str()).split('\n', Qt::SkipEmptyParts);
        qsizetype at = -1;
        for (const QString& expected : err.split('\n', Qt::SkipEmptyParts)) {
            ++at;
            while (at < lines.size() && !lines[at].startsWith(expected))
                ++at;
            QVERIFY2(at < lines.size(), qPrintable(expected + " missing in:\n" + lines.join('\n')));
        }
        if (!err.isEmpty())
            QCOMPARE(at, lines.size() - 1);
        if (args.startsWith("config")) { // read, never written or created
            QCOMPARE(readFile(files.at("IMAGE")), qbytes(image));
            QVERIFY(!QFile::exists(files.at("MISSING")));
        }
        if (code == 1 && args.contains("PAGE"))
            QCOMPARE(c.requestCount(sim::Request::Bootloader) + c.requestCount(sim::Request::Identify), 0);
        if (code == 0 && args.contains("FILE")) {
            QCOMPARE(int(c.receivedMode()), args.startsWith("flash-firmware") ? 0x7B : 0x7C);
            QCOMPARE(c.receivedImage(), transferImageOf(Bytes(300, 'x')));
        }
    }

    // The service history on the command line: identify keeps the controller's image once for
    // each content; `history` lists the entries newest first, `config diff` names what changed;
    // a history that cannot be written is said once and the identify still succeeds.
    void history()
    {
        SimPorts ports;
        auto& c = ports.add(6);
        const Bytes image = editorImage();
        c.setConfiguration(Bytes(image.begin(), image.begin() + 1008));
        c.setControllerType(1);
        QVERIFY(installDemoCatalogue(demoCatalogueDir(), ports.home()) > 0);
        const auto run = [](std::vector<std::string> args, int code, QString* text = nullptr) {
            std::ostringstream out, err;
            QCOMPARE(runCli(args, out, err), code);
            if (text)
                *text = QString::fromStdString(out.str() + err.str());
        };
        run({"identify", "--port", "6"}, 0);
        run({"identify", "--port", "6"}, 0);
        QCOMPARE(readHistory(ports.home(), "1A2B3C4D").size(), std::size_t(1));
        // Display line 3 now shows what line 4 showed. The saved image is written over in place:
        // what lies beyond its 1026 bytes stays.
        for (std::size_t k = 0; k < 8; ++k)
            c.setImageByte(8 * std::size_t(displayLineSlot(2)) + k, image[8 * std::size_t(displayLineSlot(3)) + k]);
        const QString saved = ports.homePath() + "/1A2B3C4D.eep";
        QVERIFY(writeFile(saved, readFile(saved) + "tail"));
        run({"identify", "--port", "6"}, 0);
        QCOMPARE(readFile(saved), qbytes(c.image()).left(1026) + "tail");
        const std::vector<HistoryEntry> entries = readHistory(ports.home(), "1A2B3C4D");
        QCOMPARE(entries.size(), std::size_t(2));
        QString text;
        run({"history", "1A2B3C4D"}, 0, &text);
        QCOMPARE(text.count('\n'), 2);
        QVERIFY2(text.indexOf(QString::fromStdString(entries[0].image)) < text.indexOf(QString::fromStdString(entries[1].image)),
                 qPrintable(text));
        QVERIFY2(text.contains("Firmware 166  Abbild gelesen: OK"), qPrintable(text));
        run({"config", "diff", entries[1].image, entries[0].image}, 1, &text);
        QCOMPARE(text, QString("Anzeigezeile 3: Betriebsstunden -> Batteriespannung\n"));
        run({"config", "diff", entries[0].image, entries[0].image, "--vehicle", "1"}, 0, &text);
        QCOMPARE(text, QString());
        run({"config", "diff", entries[0].image, "/nonexistent.eep"}, 2);
        run({"history", "0F0B1703"}, 1);

        // A file where the history folder should be: the identify goes on and says so once.
        QVERIFY(QDir(ports.homePath() + "/history").removeRecursively());
        QVERIFY(writeFile(ports.homePath() + "/history", "x"));
        c.setImageByte(0, 0x55);
        run({"identify", "--port", "6"}, 0, &text);
        QCOMPARE(text.count("Servicehistorie nicht gespeichert: "), 1);
    }

    // Several controllers at once, on controllers 4, 7 and 9 at line pace and a silent port 2.
    // --all finds the three; in a flash 7 goes mute at block 100: it fails alone with its text
    // and is named as possibly half-written, the others receive exactly the image. Then a
    // Ctrl-C in the middle of a flash on a terminal 40 columns wide.
    void batch()
    {
        SimPorts ports;
        ports.addSilent(2);
        for (const int n : {4, 7, 9}) {
            ports.add(n).setSerial(0x1A2B3C00u + unsigned(n));
            ports.at(n).setLineRate(true);
        }
        QByteArray data(40000, 0);
        for (int i = 0; i < data.size(); ++i)
            data[i] = char(i * 7);
        const QString file = ports.homePath() + "/fw.bin";
        QVERIFY(writeFile(file, data));
        const auto run = [](std::vector<std::string> args, int code, const CliContext& context = {}) {
            std::ostringstream out, err;
            [&] { QCOMPARE(runCli(args, out, err, context), code); }();
            return std::pair(QString::fromStdString(out.str()), QString::fromStdString(err.str()));
        };
        auto [out, err] = run({"identify", "--all", "--json"}, 0);
        QCOMPARE(out.count('\n'), 3);
        QVERIFY2(out.startsWith("{\"halfWritten\":false,\"ok\":true,\"outcome\":\"CHECKSUMME OK - VERBUNDEN!\",\"port\":4,"), qPrintable(out));
        QVERIFY2(out.contains("\"port\":9,\"seconds\":") && out.endsWith(",\"serial\":\"1A2B3C09\"}\n"), qPrintable(out));

        ports.at(7).setBootFaults({.silentFromBlock = 100});
        std::tie(out, err) = run({"flash-firmware", file.toStdString(), "--port", "9,4", "--port", "7"}, 1);
        const QStringList table = out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(table.size(), 4);
        QCOMPARE(table[0], "Port  Seriennummer  Ergebnis               Zeit");
        QVERIFY2(QRegularExpression("^   4  1A2B3C04      Erfolgreich geflasht!  \\d+,\\d s$").match(table[1]).hasMatch(), qPrintable(out));
        QVERIFY2(QRegularExpression("^   7  1A2B3C07      Retry error!           \\d+,\\d s$").match(table[2]).hasMatch(), qPrintable(out));
        QVERIFY2(err.contains(QRegularExpression("\nPort  7  1A2B3C07   [ \\d]\\d %  Blöcke gesamt: 313\n")) && !err.contains('\x1b'),
                 qPrintable(err));
        QVERIFY2(err.endsWith("\n3 Controller: 2 erfolgreich, 1 fehlgeschlagen\n"
                              "Möglicherweise halb beschrieben, bitte erneut übertragen: Port 7 (1A2B3C07)\n"), qPrintable(err));
        QVERIFY2(err.contains("\nPort  9  1A2B3C09  100 %  Erfolgreich geflasht!\n"), qPrintable(err));
        for (const int n : {4, 9})
            QCOMPARE(ports.at(n).receivedImage(), transferImageOf(Bytes(data.begin(), data.end())));
        QCOMPARE(readHistory(ports.home(), "1A2B3C07").front().outcome, "Retry error!");

        CliStop stop;
        std::atomic<bool> returned = false;
        std::thread ctrlC([&] {
            while (!returned && (ports.at(9).transferComplete() || ports.at(9).blocksAccepted() < 30))
                QThread::msleep(2);
            stop.requested = true;
        });
        std::tie(out, err) = run({"flash-firmware", file.toStdString(), "--port", "4,9"}, 1, {.columns = 40, .stop = &stop});
        returned = true;
        ctrlC.join();
        QVERIFY2(out.contains("   4  1A2B3C04      abgebrochen (Strg+C)  ") && out.contains("   9  1A2B3C09      abgebrochen (Strg+C)  "), qPrintable(out));
        QVERIFY2(err.contains("\x1b[2A\r\x1b[2KPort  4  1A2B3C04   ") && err.endsWith(": Port 4 (1A2B3C04), Port 9 (1A2B3C09)\n"
                                                                              "Abgebrochen: keine neue Übertragung gestartet, alle Ports geschlossen.\n"),
                 qPrintable(err));
        for (const QString& line : err.split("\x1b[2K").mid(1))
            QVERIFY2(line.indexOf('\n') < 40, qPrintable(line));
        QVERIFY(!ports.at(4).transferComplete() && !ports.at(9).transferComplete());
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "test_cli.moc"
