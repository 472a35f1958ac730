#pragma once
// The program folder holds every file the tool reads and writes (images, catalogue, downloads).
// VELTRO_HOME overrides it; otherwise it is the executable's folder.
#include <string>

namespace veltro {

// Folder path without a trailing separator.
std::string programFolder();
// programFolder() + "/" + name
std::string programFile(const std::string& name);

} // namespace veltro
