#include "device/identify.h"

#include "device/protocol.h"
#include "platform/endpoints.h"
#include "platform/internet.h"
#include "platform/waits.h"
#include "util/numbers.h"

#include <fstream>

namespace veltro {

std::int16_t ConnectResult::firmware() const
{
    return image.size() > kPosFirmwareHi ? MakeWord04(image[kPosFirmwareLo], image[kPosFirmwareHi]) : 0;
}

ConnectResult runConnect(SerialLink& link, Reporter& reporter)
{
    ConnectResult r;
    auto status = [&](const std::string& text) {
        r.finalStatus = text;
        reporter.status(text);
    };

    status("Öffne Com-Port");
    if (!link.open()) {
        r.portError = link.errorText();
        status("ERROR");
        return r;
    }
    status("Com-Port geöffnet");
    status("Datenanforderung...");

    const Handshake hs = resetHandshake(link, kRequestIdentify, waits::kEchoAttempts, waits::kEchoPerAttempt);
    bool imageArrived = false;
    if (!hs.ok) {
        if (!link.lost())
            status("Reset nicht erkannt!");
        r.outcome = ConnectOutcome::ResetNotRecognised;
    } else {
        link.discardInput();
        if (waitForBytes(link, kImageSize, waits::kImage)) {
            r.image = link.readAll();
            imageArrived = true;
        } else {
            r.outcome = ConnectOutcome::ImageTimeout;
        }
    }

    if (imageArrived) {
        r.outcome = ConnectOutcome::Checked;
        const Bytes& img = r.image;
        unsigned sum = 0;
        r.byteTexts.reserve(kImageFileSize);
        for (std::size_t i = 0; i < kImageFileSize; ++i) {
            sum = (sum + img[i]) & 0xFF;
            r.byteTexts.push_back(std::to_string(img[i]));
            reporter.status(r.byteTexts.back());
        }
        r.finalStatus = r.byteTexts.back();
        r.serial = imageSerial(img);
        const bool sumOk = sum == img[kImageChecksumPos];
        const int layout = img[kPosLayout];
        r.currentLayout = sumOk && layout >= 179 && layout <= 181;
        r.olderLayout = sumOk && img[kPosOlderMarker] == 5;
        if (r.connected())
            status("CHECKSUMME OK - VERBUNDEN!");
    } else if (link.lost()) {
        r.outcome = ConnectOutcome::PortFailed;
        r.portError = linkFailureText(link);
        status("ERROR");
    } else {
        // Error ending: what is waiting is read and thrown away, then what is waiting after
        // that is counted (normally nothing: "ERROR0").
        std::size_t waiting = 0;
        if (link.isOpen()) {
            link.readAll();
            waiting = link.bytesWaiting();
        }
        status(hs.counter == 1 ? std::string("ERROR") : "ERROR" + std::to_string(waiting));
    }
    link.close();
    return r;
}

std::string saveImageFile(const std::string& folder, const std::string& serial, const Bytes& image)
{
    const std::string path = folder + "/" + serial + ".eep";
    // Opened for writing without truncation: an existing file is overwritten in place.
    std::fstream out(path, std::ios::in | std::ios::out | std::ios::binary);
    if (!out.is_open()) {
        out.clear();
        out.open(path, std::ios::out | std::ios::binary);
    }
    if (!out.is_open())
        return {};
    out.seekp(0);
    out.write(reinterpret_cast<const char*>(image.data()),
              std::streamsize(std::min(image.size(), kImageFileSize)));
    return out.good() ? path : std::string();
}

std::string olderFirmwareCaption(int minor)
{
    return minor < 10 ? "FIRMWARE V1.0" + std::to_string(minor) : "FIRMWARE V1." + std::to_string(minor);
}

std::string connectProblemText(const ConnectResult& r)
{
    if (r.outcome != ConnectOutcome::PortFailed || r.portError.empty())
        return {};
    return r.portError == kLinkLostText ? r.portError : "Com-Port kann nicht geöffnet werden: " + r.portError;
}

std::string firmwareInfoPath(const std::string& hwrevision, const std::string& btversion)
{
    return "/fwupdate/VELTRO_" + hwrevision + "_" + btversion + ".txt";
}

bool newerFirmwareOnServer(const std::string& hwrevision, const std::string& btversion,
                           const std::string& firmwareversion)
{
    const FetchResult reply = fetchText(endpoints::updateHttpsRoot() + firmwareInfoPath(hwrevision, btversion));
    if (!reply.ok)
        return false;
    const std::string first = reply.body.substr(0, reply.body.find(','));
    const auto server = leadingNumber(first);
    const auto local = leadingNumber(firmwareversion);
    return server && local && *local < *server;
}

} // namespace veltro
