#pragma once
// The sample vehicle catalogue that the demo puts into its program folder.
#include <string>

namespace veltro {

// Folder of the sample catalogue: an installed tool's share/veltro/demo, else the source tree's
// data/demo when it is there, else a "demo-data" folder beside the executable.
std::string demoCatalogueDir();

// Copies the regular files of sourceDir into programDir (created when missing), leaving files
// that are already there untouched, so a user's own catalogue wins. Returns how many files
// were copied.
int installDemoCatalogue(const std::string& sourceDir, const std::string& programDir);

} // namespace veltro
