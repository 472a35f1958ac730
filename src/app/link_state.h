#pragma once
// The main window's hidden labels: shared state between the jobs, kept as text because the
// behaviour depends on text ("KJS", a recovery number as typed, numbers that fail to convert).
#include <QString>

namespace veltro {

struct LinkState {
    QString fwupdateser = "drgdf";   // serial of the connected controller / device-specific file
    QString firmwareversion = "7";   // firmware version number
    QString btversion = "65535";     // layout/boot version byte (image position 1012)
    QString hwrevision;              // hardware version byte (1013)
    QString ECUTYP;                  // controller type byte (1014)
    QString programmversion = "5";   // this tool's own version number
    QString passwortcal;             // calibration value of the data readout
    QString eepromdirect;            // configuration image waiting for upload
    QString laststatus = "500";      // last state of the remote service
    QString lastkey;                 // last key typed in the terminal
    QString labelnr;                 // unused
    QString Label3 = "4";            // wait countdown of Timer5
};

} // namespace veltro
