#pragma once
// Internet transfers for the update server and the maker's web server, through libcurl.
// Blocking calls: run them on a worker thread, never on the window's thread. Every transfer
// asks for a fresh copy (no cache), verifies certificates, and ends by its time-outs, or soon
// after transfersCancelled() is set (it then fails as "abgebrochen").
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace veltro {

struct FetchResult {
    bool ok = false;
    std::string body;
    std::string error;   // why it failed, in German, for the user
    long httpStatus = 0;
};

// Far more than any version file or connection record: a longer reply is not one of them.
inline constexpr std::size_t kTextLimit = 64 * 1024;
// Far more than the bootloader takes (98,175 bytes): a longer download is not an image.
inline constexpr std::int64_t kDownloadLimit = 1024 * 1024;

// GET a URL as text. HTTP errors (404 and the like) are failures, and so is a reply longer
// than kTextLimit.
FetchResult fetchText(const std::string& url);
// GET a URL as text the way a browser shows it: an error page (404 and the like) is a reply,
// with its status in httpStatus. Fails only when no reply came or it is longer than kTextLimit.
FetchResult fetchPage(const std::string& url);

// Called now and then during a download with the bytes received so far and the size the
// server announced (0 when it did not). Returning false cancels the download.
using DownloadProgress = std::function<bool(std::int64_t received, std::int64_t total)>;

// downloadToFile's result when more than its limit arrived (libcurl's CURLE_FILESIZE_EXCEEDED).
inline constexpr int kDownloadOverLimit = 63;

// What the server said about a download besides its bytes.
struct DownloadInfo {
    std::string contentType; // as sent, "" when none
};

// GET a URL into a file: 0 on success, otherwise the curl code or the HTTP status (>= 400);
// more than `limit` bytes end it with kDownloadOverLimit. The file is written under a
// temporary name in the same folder and renamed at the end, so a failed download never
// leaves a half file nor destroys an existing one.
int downloadToFile(const std::string& url, const std::string& path, const DownloadProgress& progress = {},
                   DownloadInfo* info = nullptr, std::int64_t limit = kDownloadLimit);

// Why a transfer failed, in German, for the user: libcurl's result code and the server's last
// reply (HTTP status, SMTP reply code), with `server` naming the server ("Server",
// "Mailserver"). libcurl's own English text appears, in parentheses, only for codes not named
// here. A transfer given up because the tool closes is "abgebrochen".
std::string transferFailureText(int curlCode, long reply = 0, const std::string& server = "Server");

// Percent-encodes what may not stand in a URL path segment (blanks, slashes, non-ASCII bytes
// and the like); letters, digits and "-._~" stay as they are.
std::string urlEncodePathSegment(const std::string& text);

// The system's CA certificates plus VELTRO_CA_FILE as one PEM text, for any TLS this tool
// opens; empty when VELTRO_CA_FILE is unset (libcurl's own store applies then).
std::string trustedCaPem();

// Time-outs in milliseconds (connect, whole text fetch, whole download); tests shorten them.
void setTransferTimeouts(long connectMs, long textTotalMs, long downloadTotalMs);

} // namespace veltro
