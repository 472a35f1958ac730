#pragma once
// The program folder holds every file the tool reads and writes (images, catalogue, downloads).
// VELTRO_HOME overrides it. An installed tool (its executable in bin/ beside share/veltro/)
// cannot write beside its executable: its folder is the user's, veltro in the XDG data folder
// (~/.local/share/veltro), made on first use. Otherwise (a build tree) it is the
// executable's folder.
#include <string>

namespace veltro {

// Folder path without a trailing separator.
std::string programFolder();
// The rule above for an executable in `executableFolder`, VELTRO_HOME `home` (null: unset) and
// the user's XDG data folder; makes nothing.
std::string programFolderFor(const std::string& executableFolder, const char* home, const std::string& userData);
// The installed tool's shared data (the demo's catalogue), empty in a build tree.
std::string installedDataFolder(const std::string& executableFolder);
// programFolder() + "/" + name
std::string programFile(const std::string& name);

} // namespace veltro
