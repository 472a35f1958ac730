#include "platform/program_folder.h"

#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>

#include <cstdlib>
#include <filesystem>

namespace veltro {

std::string installedDataFolder(const std::string& executableFolder)
{
    const std::filesystem::path share = std::filesystem::path(executableFolder) / ".." / "share" / "veltro";
    std::error_code error;
    return std::filesystem::is_directory(share, error) ? share.lexically_normal().string() : std::string();
}

std::string programFolderFor(const std::string& executableFolder, const char* home, const std::string& userData)
{
    if (home && *home) {
        std::string folder(home);
        while (folder.size() > 1 && folder.back() == '/')
            folder.pop_back();
        return folder;
    }
    if (!installedDataFolder(executableFolder).empty())
        return userData + "/veltro";
    return executableFolder;
}

std::string programFolder()
{
    if (!QCoreApplication::instance())
        return programFolderFor(QDir::currentPath().toStdString(), std::getenv("VELTRO_HOME"), {});
    const std::string executableFolder = QCoreApplication::applicationDirPath().toStdString();
    const char* home = std::getenv("VELTRO_HOME");
    const std::string folder = programFolderFor(
        executableFolder, home, QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation).toStdString());
    // The user's folder of an installed tool is made on its first start.
    if (!(home && *home) && folder != executableFolder)
        QDir().mkpath(QString::fromStdString(folder));
    return folder;
}

std::string programFile(const std::string& name)
{
    return programFolder() + "/" + name;
}

} // namespace veltro
