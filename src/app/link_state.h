#pragma once
// What the tool knows about the connected controller, shared between the jobs; kept as text
// because the behaviour depends on text ("KJS", a recovery number as typed, numbers that fail
// to convert). The functions turn it into the inputs of the jobs and take their results.
#include "editor/editor_logic.h"
#include "flash/jobs.h"

#include <QString>

namespace veltro {

struct ConnectResult;

struct LinkState {
    QString fwupdateser = "drgdf";   // serial of the connected controller / device-specific file
    QString firmwareversion = "7";   // firmware version number
    QString btversion = "65535";     // layout/boot version byte (image position 1012)
    QString hwrevision;              // hardware version byte (1013)
    QString ECUTYP;                  // controller type byte (1014)
    QString programmversion = "5";   // this tool's own version number
    QString eepromdirect;            // configuration image waiting for upload
    QString laststatus = "500";      // last state of the remote service the poll has shown
    QString Label3 = "4";            // wait countdown of Timer5
};

// A connect's serial (when the controller answered) and image bytes; an image that passes
// both layout tests leaves the older layout's values, as the device expects.
void takeConnect(LinkState& state, const ConnectResult& r);

FirmwareInputs firmwareInputs(const LinkState& state, int port, bool olderForm);
ConfigUploadInputs configUploadInputs(const LinkState& state, int port);
EditorLink editorLink(const LinkState& state);

// The device information shown over the serial, firmware and hardware captions; empty before
// any connect (the layout byte still reads 65535, for which the device has no answer).
QString deviceInfoText(const LinkState& state);

// One second of the wait countdown after a transfer: the number to show. At 1 the countdown
// is over (`over`), and the next one starts from 4 again.
struct CountdownStep {
    int shown;
    bool over;
};
CountdownStep countDown(LinkState& state);

} // namespace veltro
