#pragma once
// The jobs that use the bootloader exchange: firmware update from the update server (also the
// recovery path), and the configuration upload. Each runs on a worker thread; questions go
// through Dialogs, texts through the Reporter. The window does the rest with the result.
#include "flash/transfer.h"
#include "platform/dialogs.h"
#include "platform/reporter.h"
#include "platform/serial_link.h"

#include <functional>
#include <optional>
#include <string>

namespace veltro {

// The main window's link values a firmware run reads.
struct FirmwareInputs {
    std::string fwupdateser;     // device-specific file name on the server (serial or recovery number)
    std::string hwrevision;
    std::string btversion;
    std::string firmwareversion;
    std::string ECUTYP;
    int port = 0;
    std::string programFolder;
    bool olderForm = false;      // the older workflow: version file over HTTP, no hardware part
};

struct FirmwareResult {
    std::optional<TransferOutcome> transfer; // set when blocks were sent
    bool flashed = false;                    // "Erfolgreich geflasht!"
    std::string file;                        // the image's address, once the user took an offer
    // Every run ends with this name, so the device-specific probe does not offer the same
    // file again; also when the user declined.
    std::string fwupdateser = "KJS";
};

struct FirmwareHooks {
    std::function<void(const std::string&)> setFrameTitle; // "Firmware-Update"
    std::function<void()> showList;                        // List1 becomes visible
};

FirmwareResult runFirmwareUpdate(const FirmwareInputs& in, Dialogs& dialogs, Reporter& reporter,
                                 SerialLinkFactory& ports, const FirmwareHooks& hooks = {});

// The older workflow's version file and the current one, as server paths.
std::string firmwareVersionPath(const FirmwareInputs& in);
std::string latestImagePath(const FirmwareInputs& in);

struct ConfigUploadInputs {
    std::string eepromdirect; // a waiting image (used once), else the file dialog
    std::string fwupdateser;  // names the temporary file removed on cancel
    int port = 0;
    std::string programFolder;
};

struct ConfigUploadResult {
    bool cancelled = false;        // the dialog was cancelled: start Timer2 and Timer5
    bool eepromdirectTaken = false; // the waiting path was used: empty eepromdirect
    std::optional<TransferOutcome> transfer;
    std::string file;
};

ConfigUploadResult runConfigUpload(const ConfigUploadInputs& in, Dialogs& dialogs, Reporter& reporter,
                                   SerialLinkFactory& ports, const std::function<void()>& showList = {});

// "RECOVERY": the number support gave, taken as it stands. The input box's cancel reads as an
// empty text.
inline constexpr const char* kRecoveryTitle = "Recovery";
extern const char* const kRecoveryPrompt;
std::string askRecoveryNumber(Dialogs& dialogs);

} // namespace veltro
