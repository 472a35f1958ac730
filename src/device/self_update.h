#pragma once
// The check for a newer version of the tool itself at the end of start-up: the version file
// on the update server, the question, the installer download and its start.
#include <optional>
#include <string>

namespace veltro {

struct SelfUpdateOffer {
    std::string versionText; // field 1 of the version file, shown in the question
};

inline constexpr const char* kSelfUpdateTitle = "Software-Update runterladen?";
std::string selfUpdateQuestion(const std::string& versionText);

// Reads "/fwupdate/VELTRO.txt" over HTTP. An offer when the server's number (field 0) is
// greater than `programmversion`; nothing on any failure (server down, empty reply, no
// second field).
std::optional<SelfUpdateOffer> checkSelfUpdate(const std::string& programmversion);
// The same decision on a reply text already fetched.
std::optional<SelfUpdateOffer> selfUpdateOfferFrom(const std::string& reply, const std::string& programmversion);

// Downloads "/fwupdate/VELTRO-setup.exe" to folder + "/setup.exe"; 0 on success.
int downloadInstaller(const std::string& folder);
// Starts the downloaded installer as a program of its own; false when it could not start.
bool startInstaller(const std::string& path);

} // namespace veltro
