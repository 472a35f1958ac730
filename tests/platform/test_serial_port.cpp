// Why a serial port could not be opened, in the words the windows show.
#include "platform/qt_serial_link.h"

#include <QTest>

#include <cerrno>

using namespace veltro;
using E = QSerialPort;

class TestSerialPort : public QObject {
    Q_OBJECT
private slots:
    // The reason comes from the error the open itself met. The device is not opened a second
    // time to find out: some controllers reset when their line is opened.
    void openFailure_data()
    {
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("qtText");
        QTest::addColumn<QString>("text");
        QTest::newRow("no rights") << int(E::PermissionError) << qt_error_string(EACCES)
                                   << "Keine Berechtigung für den Port (Benutzer in die Gruppe dialout aufnehmen)";
        QTest::newRow("held by another program") << int(E::PermissionError) << qt_error_string(EBUSY)
                                                 << "Port wird von einem anderen Programm benutzt";
        QTest::newRow("locked") << int(E::PermissionError) << "Permission error while locking the device"
                                << "Port wird von einem anderen Programm benutzt";
        QTest::newRow("gone") << int(E::DeviceNotFoundError) << qt_error_string(ENOENT) << "Port nicht vorhanden";
    }
    void openFailure()
    {
        QFETCH(int, error);
        QFETCH(QString, qtText);
        QFETCH(QString, text);
        QCOMPARE(QString::fromStdString(portOpenFailureText(E::SerialPortError(error), qtText)), text);
    }
};

QTEST_GUILESS_MAIN(TestSerialPort)
#include "test_serial_port.moc"
