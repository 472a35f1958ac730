#include "platform/serial_rights.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace veltro {

std::string serialRightsNote(uid_t uid, const std::vector<gid_t>& groups, long dialout, const std::string& user)
{
    if (uid == 0 || dialout < 0 || std::find(groups.begin(), groups.end(), gid_t(dialout)) != groups.end())
        return {};
    return "Dieses Benutzerkonto darf die seriellen Schnittstellen nicht öffnen, so wird kein Controller "
           "gefunden. Die Schnittstellen gehören der Gruppe dialout. Ein Administrator nimmt das Konto "
           "einmal in die Gruppe auf:\n\nsudo usermod -aG dialout "
           + user + "\n\nDanach ab- und wieder anmelden. Dieser Hinweis erscheint nur einmal.";
}

std::string serialRightsNoteOnce(const std::string& folder)
{
    const std::string marker = folder + "/.dialout-hinweis";
    std::error_code error;
    if (std::filesystem::exists(marker, error))
        return {};
    std::vector<gid_t> groups(std::size_t(std::max(getgroups(0, nullptr), 0)) + 1);
    const int count = getgroups(int(groups.size()) - 1, groups.data());
    groups.resize(std::size_t(std::max(count, 0)));
    groups.push_back(getegid());
    const group* dialout = getgrnam("dialout");
    const passwd* me = getpwuid(getuid());
    const std::string note = serialRightsNote(getuid(), groups, dialout ? long(dialout->gr_gid) : -1,
                                              me ? me->pw_name : "BENUTZERNAME");
    if (!note.empty())
        std::ofstream(marker) << "gezeigt\n";
    return note;
}

} // namespace veltro
