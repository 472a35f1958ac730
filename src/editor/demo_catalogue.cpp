#include "editor/demo_catalogue.h"

#include "platform/program_folder.h"
#include "util/runtime_error.h"

#include <QCoreApplication>

#include <filesystem>

namespace veltro {

std::string demoCatalogueDir()
{
    if (QCoreApplication::instance())
        if (const std::string installed = installedDataFolder(QCoreApplication::applicationDirPath().toStdString());
            !installed.empty())
            return installed + "/demo";
#ifdef VELTRO_DEMO_DATA_DIR
    if (std::filesystem::is_directory(VELTRO_DEMO_DATA_DIR))
        return VELTRO_DEMO_DATA_DIR;
#endif
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath().toStdString() + "/demo-data";
    return "demo-data";
}

int installDemoCatalogue(const std::string& sourceDir, const std::string& programDir)
{
    namespace fs = std::filesystem;
    std::error_code error;
    fs::create_directories(programDir, error);
    if (!fs::is_directory(programDir))
        throw RuntimeError(ErrNo::PathAccess, "cannot create " + programDir);
    int copied = 0;
    error.clear();
    for (const fs::directory_entry& entry : fs::directory_iterator(sourceDir, error)) {
        if (!entry.is_regular_file())
            continue;
        const fs::path target = fs::path(programDir) / entry.path().filename();
        if (fs::exists(target))
            continue;
        if (!fs::copy_file(entry.path(), target, error))
            throw RuntimeError(ErrNo::PathAccess, "cannot copy to " + target.string());
        ++copied;
    }
    if (error)
        throw RuntimeError(ErrNo::FileNotFound, sourceDir);
    return copied;
}

} // namespace veltro
