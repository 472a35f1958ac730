#pragma once
// "VERBINDEN": the controller restarts into its identification output, the 1028-byte image is
// checked, and the link values, the labels and the saved image follow from it.
#include "platform/reporter.h"
#include "platform/serial_link.h"
#include "util/hex.h"

#include <cstdint>
#include <string>
#include <vector>

namespace veltro {

enum class ConnectOutcome {
    Checked,            // an image arrived; see currentLayout / olderLayout for what it is
    ResetNotRecognised, // no echo of the request: "Reset nicht erkannt!" then "ERROR"
    ImageTimeout,       // echo, but the image did not arrive: "ERROR" + waiting count
    PortFailed,         // the port could not be opened or was lost
};

struct ConnectResult {
    ConnectOutcome outcome = ConnectOutcome::PortFailed;
    Bytes image;                     // as received (1028 bytes when an image arrived)
    std::string serial;              // 8 hex digits
    bool currentLayout = false;      // byte 1012 in 179..181 and checksum right
    bool olderLayout = false;        // byte 127 == 5 and checksum right
    std::vector<std::string> byteTexts; // bytes 0..1025 in decimal, appended to List3
    std::string finalStatus;         // the status text the job left
    std::string portError;           // why the port failed, for PortFailed
    std::string savedFile;           // path of serial + ".eep" when it was written

    bool connected() const { return currentLayout || olderLayout; }
    std::int16_t firmware() const;   // word at 1024/1025
    int layoutByte() const { return image.size() > 1012 ? image[1012] : 0; }
    int hardwareVersion() const { return image.size() > 1013 ? image[1013] : 0; }
    int controllerType() const { return image.size() > 1014 ? image[1014] : 0; }
    int olderMinor() const { return image.size() > 126 ? image[126] : 0; }
    int olderMarker() const { return image.size() > 127 ? image[127] : 0; }
};

// The exchange on an unopened link: opens it, runs the handshake and the image check, closes
// it. Reports the status texts in the order the window shows them.
ConnectResult runConnect(SerialLink& link, Reporter& reporter);

// Writes image positions 0..1025 to folder/serial.eep, overwriting in place. Returns the path,
// empty on failure.
std::string saveImageFile(const std::string& folder, const std::string& serial, const Bytes& image);

// The firmware caption of an older-layout image: minor 7 gives "FIRMWARE V1.07".
std::string olderFirmwareCaption(int minor);

// Why a connect could not use its port, as the connect panel says it: a port that would not
// open, or a controller that went away. Empty when the port was not the problem.
std::string connectProblemText(const ConnectResult& r);

// The firmware information path on the update server: "/fwupdate/VELTRO_3_180.txt".
std::string firmwareInfoPath(const std::string& hwrevision, const std::string& btversion);

// Asks the update server whether firmware newer than `firmware` exists for this hardware.
// Errors (server down, malformed file) count as "no".
bool newerFirmwareOnServer(const std::string& hwrevision, const std::string& btversion,
                           const std::string& firmwareversion);

} // namespace veltro
