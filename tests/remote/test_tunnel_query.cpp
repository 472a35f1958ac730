// The tunnel's QUERY without its window: what the log shows of the fetched record, and the
// record the tunnel connects with.
#include "remote/tunnel_query.h"

#include <QStringList>
#include <QTest>

using namespace veltro;

namespace {
QStringList lines(const TunnelQuery& q)
{
    QStringList out;
    for (const std::string& l : q.lines)
        out << QString::fromStdString(l);
    return out;
}
} // namespace

class TestTunnelQuery : public QObject {
    Q_OBJECT
private slots:
    void outcome_data()
    {
        QTest::addColumn<QByteArray>("fetched"); // "-": the download failed
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<bool>("connectable");
        QTest::newRow("no record") << QByteArray("-") << QStringList{"++NO CONNECTIONDATA FOUND!"} << false;
        QTest::newRow("record") << QByteArray("10,1,2,3,4711,115200,1\r\n")
                                << QStringList{"++CONNECTIONDATA FOUND!", "++BAUDRATE: 115200"} << true;
        QTest::newRow("empty baud: the port's 38400") << QByteArray("10,1,2,3,4711,,0")
                                                      << QStringList{"++CONNECTIONDATA FOUND!", "++BAUDRATE: 38400"} << true;
        QTest::newRow("six fields") << QByteArray("10,1,2,3,4711,115200")
                                    << QStringList{"++CONNECTIONDATA FEHLERHAFT: 6 von 7 Feldern"} << false;
        QTest::newRow("empty file") << QByteArray() << QStringList{"++CONNECTIONDATA FEHLERHAFT: 1 von 7 Feldern"} << false;
    }
    void outcome()
    {
        QFETCH(QByteArray, fetched);
        QFETCH(QStringList, lines);
        QFETCH(bool, connectable);
        const auto text = fetched == "-" ? std::nullopt : std::optional<std::string>(fetched.toStdString());
        const TunnelQuery q = tunnelQuery(text);
        QCOMPARE(::lines(q), lines);
        QCOMPARE(q.record.has_value(), connectable);
        if (connectable) {
            QCOMPARE(QString::fromStdString(q.record->host), QString("10.1.2.3"));
            QCOMPARE(q.record->port, 4711);
        }
    }
};

QTEST_MAIN(TestTunnelQuery)
#include "test_tunnel_query.moc"
