#include "platform/program_folder.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdlib>

namespace veltro {

std::string programFolder()
{
    if (const char* home = std::getenv("VELTRO_HOME"); home && *home) {
        std::string folder(home);
        while (folder.size() > 1 && folder.back() == '/')
            folder.pop_back();
        return folder;
    }
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath().toStdString();
    return QDir::currentPath().toStdString();
}

std::string programFile(const std::string& name)
{
    return programFolder() + "/" + name;
}

} // namespace veltro
