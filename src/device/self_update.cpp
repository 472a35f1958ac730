#include "device/self_update.h"

#include "platform/endpoints.h"
#include "platform/internet.h"
#include "util/numbers.h"

#include <QFile>
#include <QProcess>
#include <QString>

namespace veltro {

std::string selfUpdateQuestion(const std::string& versionText)
{
    return "Auf dem Server befindet sich Softwareversion " + versionText
           + ". Soll die aktuelle Version runtergeladen und installiert werden?";
}

std::optional<SelfUpdateOffer> selfUpdateOfferFrom(const std::string& reply, const std::string& programmversion)
{
    const auto comma = reply.find(',');
    if (comma == std::string::npos)
        return std::nullopt;
    std::string field1 = reply.substr(comma + 1);
    field1 = field1.substr(0, field1.find(','));
    while (!field1.empty() && (field1.back() == '\r' || field1.back() == '\n'))
        field1.pop_back();
    const auto server = leadingNumber(reply.substr(0, comma));
    const auto local = leadingNumber(programmversion);
    if (!server || !local || !(*local < *server))
        return std::nullopt;
    return SelfUpdateOffer{field1};
}

std::optional<SelfUpdateOffer> checkSelfUpdate(const std::string& programmversion)
{
    const FetchResult reply = fetchText(endpoints::updateHttpRoot() + "/fwupdate/VELTRO.txt");
    if (!reply.ok)
        return std::nullopt;
    return selfUpdateOfferFrom(reply.body, programmversion);
}

int downloadInstaller(const std::string& folder)
{
    // The tool's installer is no controller image: it gets a cap of its own.
    constexpr std::int64_t kInstallerLimit = 512LL * 1024 * 1024;
    return downloadToFile(endpoints::updateHttpRoot() + "/fwupdate/VELTRO-setup.exe", folder + "/setup.exe", {},
                          nullptr, kInstallerLimit);
}

bool startInstaller(const std::string& path)
{
    const QString file = QString::fromStdString(path);
#ifndef Q_OS_WIN
    // The installer arrives without the execute bit.
    QFile::setPermissions(file, QFile::permissions(file) | QFileDevice::ExeOwner | QFileDevice::ExeUser);
#endif
    return QProcess::startDetached(file, {});
}

} // namespace veltro
