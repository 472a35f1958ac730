#include "platform/endpoints.h"

#include <cstdlib>

namespace veltro::endpoints {

namespace {
constexpr const char* kUpdateHttp = "http://update.veltro.example";
constexpr const char* kUpdateHttps = "https://update.veltro.example";
constexpr const char* kWebHttp = "http://www.veltro.example";
constexpr const char* kSmtp = "mail.veltro.example:25";
constexpr const char* kSupportMail = "support@veltro.example";

std::string fromEnv(const char* name, const char* fallback, bool isRoot)
{
    const char* value = std::getenv(name);
    std::string text = value && *value ? value : fallback;
    if (isRoot)
        while (!text.empty() && text.back() == '/')
            text.pop_back();
    return text;
}
} // namespace

std::string updateHttpRoot() { return fromEnv("VELTRO_UPDATE_HTTP", kUpdateHttp, true); }
std::string updateHttpsRoot() { return fromEnv("VELTRO_UPDATE_HTTPS", kUpdateHttps, true); }
std::string webHttpRoot() { return fromEnv("VELTRO_WEB_HTTP", kWebHttp, true); }
std::string smtpServer() { return fromEnv("VELTRO_SMTP", kSmtp, false); }
std::string supportMail() { return fromEnv("VELTRO_SUPPORT_MAIL", kSupportMail, false); }
std::string caFile() { return fromEnv("VELTRO_CA_FILE", "", false); }

} // namespace veltro::endpoints
