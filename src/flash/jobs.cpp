#include "flash/jobs.h"

#include "flash/image_check.h"
#include "platform/endpoints.h"
#include "platform/internet.h"
#include "util/numbers.h"
#include "util/runtime_error.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace veltro {

const char* const kRecoveryPrompt =
    "Diese Funktion ist dafür gedacht, falls ein Firmwareupdate fehlschlug. Bitte wenden Sie sich zuerst an "
    "den technischen Support, da eine entsprechende Datei auf dem Server vorbereitet werden muss. Bitte geben "
    "Sie die Nummer ein, die der technische Support Ihnen mitgeteilt hat.";

namespace {

constexpr const char* kSearchTitle = "Firmware-Update suchen?";
constexpr const char* kSearchText = "Soll im Internet nach einem Softwareupdate gesucht werden?";
constexpr const char* kDownloadTitle = "Firmware-Update runterladen?";
constexpr const char* kSafety = " Bitte stellen Sie sicher, dass die Stromversorgung des Gerätes stabil ist. Das "
                                "Firmware-Update erfolgt auf eigene Gefahr.";

std::string deviceSpecificText(bool olderForm)
{
    return std::string("Auf dem Server befindet sich ein Update speziell für die Seriennummer des Gerätes")
           + (olderForm ? "?" : "!") + " Möchten Sie das Update einspielen?" + kSafety;
}

std::vector<std::string> splitFields(const std::string& text)
{
    std::vector<std::string> fields;
    std::stringstream in(text);
    std::string field;
    while (std::getline(in, field, ','))
        fields.push_back(field);
    for (auto& f : fields)
        while (!f.empty() && (f.back() == '\r' || f.back() == '\n'))
            f.pop_back();
    return fields;
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

Bytes readBytes(const std::string& path)
{
    const std::string text = readFile(path);
    return Bytes(text.begin(), text.end());
}

} // namespace

std::string firmwareVersionPath(const FirmwareInputs& in)
{
    if (in.olderForm)
        return "/fwupdate/" + in.btversion + ".txt";
    return "/fwupdate/VELTRO_" + in.hwrevision + "_" + in.btversion + ".txt";
}

std::string latestImagePath(const FirmwareInputs& in)
{
    if (in.olderForm)
        return "/fwupdate/" + in.btversion + "_lastfw";
    if (in.ECUTYP == "3")
        return "/fwupdate/" + in.hwrevision + "_" + in.btversion + "_3" + "_lastfw";
    return "/fwupdate/" + in.hwrevision + "_" + in.btversion + "_lastfw";
}

FirmwareResult runFirmwareUpdate(const FirmwareInputs& in, Dialogs& dialogs, Reporter& reporter,
                                 SerialLinkFactory& ports, const FirmwareHooks& hooks)
{
    FirmwareResult result;
    if (!dialogs.question(kSearchTitle, kSearchText))
        return result;

    const std::string http = endpoints::updateHttpRoot();
    const std::string folder = in.programFolder;
    std::string imageUrl;

    // A file prepared for this very device (or a recovery number) comes first; the server
    // answers an error when there is none, also for an empty name. A page that a server or a
    // proxy sends for a missing path with status 200 is no such file.
    const std::string specificUrl = http + "/fwupdate/" + urlEncodePathSegment(in.fwupdateser);
    DownloadInfo probe;
    if (downloadToFile(specificUrl, folder + "/firmware.txt", {}, &probe) == 0
        && !imageRefusal(readBytes(folder + "/firmware.txt"), ImageKind::Firmware, probe.contentType)) {
        if (!dialogs.question(kDownloadTitle, deviceSpecificText(in.olderForm)))
            return result;
        imageUrl = specificUrl;
    } else {
        std::vector<std::string> fields;
        if (in.olderForm) {
            const std::string local = folder + "/firmware.txt";
            if (downloadToFile(http + firmwareVersionPath(in), local, {}, nullptr, std::int64_t(kTextLimit)) == 0) {
                fields = splitFields(readFile(local));
                std::remove(local.c_str());
            }
        } else {
            const FetchResult info = fetchText(endpoints::updateHttpsRoot() + firmwareVersionPath(in));
            if (info.ok)
                fields = splitFields(info.body);
        }
        const auto server = fields.size() >= 2 ? leadingNumber(fields[0]) : std::nullopt;
        if (!server) {
            dialogs.message("Suche fehlgeschlagen!", "Informationen konnten nicht runtergeladen werden");
            return result;
        }
        const auto local = leadingNumber(in.firmwareversion);
        if (local && *local >= *server) {
            dialogs.message("Firmware ist aktuell!", "Die aktuelle Firmware ist auf dem Gerät installiert!");
            return result;
        }
        if (!dialogs.question(kDownloadTitle, "Auf dem Server befindet sich Firmwareversion " + fields[1]
                                                  + ". Soll die aktuelle Firmwareversion runtergeladen und auf "
                                                    "dem Gerät installiert werden?"
                                                  + kSafety))
            return result;
        if (hooks.setFrameTitle) hooks.setFrameTitle("Firmware-Update");
        imageUrl = http + latestImagePath(in);
    }

    result.file = imageUrl;
    if (hooks.showList) hooks.showList();
    reporter.step("Starte Download...");
    const std::string image = folder + "/jdwiii.hzg";
    DownloadInfo downloaded;
    const int code = downloadToFile(imageUrl, image, {}, &downloaded);
    if (code != 0) {
        reporter.step("Download fehlgeschlagen!");
        if (code == kDownloadOverLimit)
            reporter.step("Die Datei ist größer als " + std::to_string(kDownloadLimit / 1024 / 1024)
                          + " MiB: das ist keine Firmware für diesen Controller.");
        return result;
    }
    reporter.step("Download erfolgreich");
    Bytes file;
    try {
        file = loadImageFile(image);
    } catch (const RuntimeError& e) {
        reporter.step("Firmware-Datei nicht lesbar: " + e.text());
        return result;
    }
    // Checked before the bootloader is woken: a refused file leaves the controller as it is.
    if (const auto why = imageRefusal(file, ImageKind::Firmware, downloaded.contentType)) {
        reporter.step(*why);
        return result;
    }
    const Bytes transferImage = transferImageOf(file);
    auto link = ports.create(in.port);
    result.transfer = runTransfer(*link, transferImage, TransferParams::firmware(), reporter);
    result.flashed = *result.transfer == TransferOutcome::Success;
    if (result.flashed)
        std::remove(image.c_str()); // kept after a failure, for the next try
    return result;
}

ConfigUploadResult runConfigUpload(const ConfigUploadInputs& in, Dialogs& dialogs, Reporter& reporter,
                                   SerialLinkFactory& ports, const std::function<void()>& showList)
{
    ConfigUploadResult result;
    reporter.status("öffne COM-Port");
    reporter.step("öffne COM-Port");
    auto link = ports.create(in.port);
    if (!link->open()) {
        const std::string why = "Com-Port kann nicht geöffnet werden: " + link->errorText();
        reporter.status(why);
        reporter.step(why);
        return result;
    }

    if (in.eepromdirect.empty()) {
        const auto chosen = dialogs.openFile("");
        if (!chosen) {
            // Cancel: the editor's temporary image is not wanted any more; nothing is sent.
            link->close();
            result.cancelled = true;
            std::remove((in.programFolder + "/" + in.fwupdateser + ".tmp").c_str());
            return result;
        }
        result.file = *chosen;
    } else {
        result.file = in.eepromdirect;
        result.eepromdirectTaken = true;
    }

    if (showList) showList();
    std::error_code sizeError;
    const auto size = std::filesystem::file_size(result.file, sizeError);
    if (!sizeError && size > kMaxImageFileSize) {
        link->close();
        const std::string why = *sizeRefusal(size);
        reporter.status(why);
        reporter.step(why);
        return result;
    }
    Bytes image;
    try {
        image = LoadTransferImage(result.file);
    } catch (const RuntimeError&) {
        link->close();
        const std::string why = "Datei nicht lesbar: " + result.file;
        reporter.status(why);
        reporter.step(why);
        return result;
    }
    result.transfer = runTransfer(*link, image, TransferParams::configuration(), reporter);
    return result;
}

std::string askRecoveryNumber(Dialogs& dialogs)
{
    return dialogs.input(kRecoveryTitle, kRecoveryPrompt).value_or(std::string());
}

} // namespace veltro
