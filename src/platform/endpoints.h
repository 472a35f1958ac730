#pragma once
// The maker's servers, in one place. Until the maker names its hosts the defaults lie under the
// reserved .example domain, so nothing real is reached by accident. Each root can be overridden
// by an environment variable (tests, the demo, a service bench). Roots carry no trailing slash;
// a server path is appended exactly as the tool builds it.
#include <string>

namespace veltro::endpoints {

std::string updateHttpRoot();  // VELTRO_UPDATE_HTTP
std::string updateHttpsRoot(); // VELTRO_UPDATE_HTTPS
std::string webHttpRoot();     // VELTRO_WEB_HTTP
std::string smtpServer();      // VELTRO_SMTP, host:port
std::string supportMail();     // VELTRO_SUPPORT_MAIL
std::string caFile();          // VELTRO_CA_FILE, empty when unset

} // namespace veltro::endpoints
