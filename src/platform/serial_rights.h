#pragma once
// On Debian a serial port belongs to the group dialout: a user outside it finds no controller,
// only "Zugriff verweigert". The tool says once, in the user's program folder, how to get the
// right.
#include <string>
#include <sys/types.h>
#include <vector>

namespace veltro {

// The note for a user `user` (uid, groups) on a machine whose dialout group has `dialout`
// (-1: no such group); empty when the user may open serial ports (root, a member, no group).
std::string serialRightsNote(uid_t uid, const std::vector<gid_t>& groups, long dialout, const std::string& user);

// The note for this process, the first time only: a marker in `folder` remembers that it was
// given. Empty when there is nothing to say or it was said before.
std::string serialRightsNoteOnce(const std::string& folder);

} // namespace veltro
