// The link state without a window: what a connect leaves in it, the jobs' inputs taken from it,
// the device information over the captions and the wait countdown.
#include "app/link_state.h"
#include "device/device_info.h"
#include "device/identify.h"

#include <QTest>

using namespace veltro;

namespace {
// A checked controller 0F0B1703: firmware 166, layout byte 180, hardware 3, controller type 2;
// `older`: also byte 127 = 5 and older minor 7 at byte 126, which passes the older layout test.
ConnectResult checked(bool current, bool older)
{
    ConnectResult r;
    r.outcome = ConnectOutcome::Checked;
    r.serial = "0F0B1703";
    r.image.assign(1028, 0);
    r.image[1012] = 180;
    r.image[1013] = 3;
    r.image[1014] = 2;
    r.image[1024] = 166;
    r.image[126] = 7;
    r.image[127] = 5;
    r.currentLayout = current;
    r.olderLayout = older;
    return r;
}

// Serial, layout byte, firmware, hardware, controller type.
QStringList values(const LinkState& s)
{
    return {s.fwupdateser, s.btversion, s.firmwareversion, s.hwrevision, s.ECUTYP};
}
} // namespace

// The layout tests a connect passed, and the state it leaves (values()).
struct ConnectRow {
    bool current, older;
    QStringList state;
};
Q_DECLARE_METATYPE(ConnectRow)

class TestLinkState : public QObject {
    Q_OBJECT
private slots:
    // Before any connect the state holds the device tool's start values.
    void startValues()
    {
        const LinkState s;
        QCOMPARE(values(s), QStringList({"drgdf", "65535", "7", "", ""}));
        QCOMPARE(QStringList({s.programmversion, s.laststatus, s.Label3}), QStringList({"5", "500", "4"}));
    }

    // The current layout's bytes; an older-layout image's marker and minor win over them; a
    // connect that found no controller leaves the state as it was.
    void takeConnect_data()
    {
        QTest::addColumn<ConnectRow>("row");
        QTest::newRow("current layout") << ConnectRow{true, false, {"0F0B1703", "180", "166", "3", "2"}};
        QTest::newRow("older layout") << ConnectRow{false, true, {"0F0B1703", "5", "7", "", ""}};
        QTest::newRow("both layouts") << ConnectRow{true, true, {"0F0B1703", "5", "7", "3", "2"}};
        QTest::newRow("neither") << ConnectRow{false, false, {"0F0B1703", "65535", "7", "", ""}};
    }
    void takeConnect()
    {
        QFETCH(ConnectRow, row);
        LinkState s;
        veltro::takeConnect(s, checked(row.current, row.older));
        QCOMPARE(values(s), row.state);

        LinkState untouched;
        ConnectResult failed;
        failed.portError = "Port nicht vorhanden";
        veltro::takeConnect(untouched, failed);
        QCOMPARE(values(untouched), values(LinkState()));
    }

    void jobInputs()
    {
        LinkState s;
        veltro::takeConnect(s, checked(true, false));
        s.eepromdirect = "/tmp/upload.tmp";
        const FirmwareInputs f = firmwareInputs(s, 4, true);
        QCOMPARE(QStringList({QString::fromStdString(f.fwupdateser), QString::fromStdString(f.hwrevision),
                              QString::fromStdString(f.btversion), QString::fromStdString(f.firmwareversion),
                              QString::fromStdString(f.ECUTYP)}),
                 QStringList({"0F0B1703", "3", "180", "166", "2"}));
        QVERIFY(f.port == 4 && f.olderForm);
        const ConfigUploadInputs c = configUploadInputs(s, 4);
        QCOMPARE(QString::fromStdString(c.eepromdirect), s.eepromdirect);
        QCOMPARE(QString::fromStdString(c.fwupdateser), QString("0F0B1703"));
        QCOMPARE(c.port, 4);
        const EditorLink e = editorLink(s);
        QCOMPARE(QStringList({QString::fromStdString(e.ecutyp), QString::fromStdString(e.fwupdateser),
                              QString::fromStdString(e.btversion)}),
                 QStringList({"2", "0F0B1703", "180"}));
    }

    // Before any connect the layout byte reads 65535, for which there is no information: the
    // tooltip is empty. After a connect it is the device information.
    void deviceInfo()
    {
        LinkState s;
        QCOMPARE(deviceInfoText(s), QString());
        veltro::takeConnect(s, checked(true, false));
        QCOMPARE(deviceInfoText(s), QString::fromStdString(deviceInfoTooltip("0F0B1703", "180")));
        QVERIFY(!deviceInfoText(s).isEmpty());
    }

    // 3, 2, 1 and over; the next countdown starts from 4 again.
    void countdown()
    {
        LinkState s;
        QList<int> shown;
        QList<bool> over;
        for (int i = 0; i < 4; ++i) {
            const CountdownStep step = countDown(s);
            shown << step.shown;
            over << step.over;
        }
        QCOMPARE(shown, QList<int>({3, 2, 1, 3}));
        QCOMPARE(over, QList<bool>({false, false, true, false}));
    }
};

QTEST_MAIN(TestLinkState)
#include "test_link_state.moc"
