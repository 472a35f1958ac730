#pragma once
// veltro-cli: scripted service work with the same logic objects as the window.
//   veltro-cli ports                       chooser entries of a scan, one a line
//   veltro-cli identify --port N           connect and identify, print the controller's data
#include <iosfwd>
#include <string>
#include <vector>

namespace veltro {

// Runs one command; returns the process exit code. Output to `out`, status texts and errors
// to `err`.
int runCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

} // namespace veltro
