#include "platform/internet.h"

#include "platform/cancel.h"
#include "platform/curl_perform.h"
#include "platform/endpoints.h"

#include <curl/curl.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace veltro {

namespace {
std::atomic<long> gConnectMs{10000};
std::atomic<long> gTextMs{20000};
std::atomic<long> gDownloadMs{120000};

void globalInit()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

bool readWhole(const std::string& path, std::string& out)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return false;
    std::ostringstream s;
    s << in.rdbuf();
    out = s.str();
    return true;
}

// The system's CA bundle plus VELTRO_CA_FILE as one PEM text: libcurl takes a single bundle,
// and naming the extra file alone would drop every public CA. Built once per extra file.
std::string caBundle(const std::string& extra)
{
    static std::mutex mutex;
    static std::string cachedFor;
    static std::string cached;
    std::lock_guard lock(mutex);
    if (cachedFor == extra && !cached.empty())
        return cached;

    std::string system;
    const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
    const char* builtIn = info && info->age >= CURLVERSION_SEVENTH ? info->cainfo : nullptr;
    for (const char* path : {builtIn, "/etc/ssl/certs/ca-certificates.crt", "/etc/pki/tls/certs/ca-bundle.crt",
                             "/etc/ssl/cert.pem"}) {
        if (path && readWhole(path, system))
            break;
    }
    std::string added;
    readWhole(extra, added);
    cached = system + "\n" + added + "\n";
    cachedFor = extra;
    return cached;
}

// Where received bytes go, with the most that may arrive. Returning less than was offered
// makes libcurl end the transfer; no exception may leave these callbacks.
struct TextSink {
    std::string* body;
    std::size_t limit;
    bool overLimit = false;
};
struct FileSink {
    std::FILE* file;
    std::int64_t limit;
    std::int64_t written = 0;
    bool overLimit = false;
};

size_t appendToString(char* data, size_t size, size_t count, void* user) noexcept
{
    auto& sink = *static_cast<TextSink*>(user);
    const std::size_t n = size * count;
    if (sink.body->size() + n > sink.limit) {
        sink.overLimit = true;
        return 0;
    }
    try {
        sink.body->append(data, n);
    } catch (...) {
        return 0;
    }
    return n;
}

size_t appendToFile(char* data, size_t size, size_t count, void* user) noexcept
{
    auto& sink = *static_cast<FileSink*>(user);
    const std::size_t n = size * count;
    if (sink.written + std::int64_t(n) > sink.limit) {
        sink.overLimit = true;
        return 0;
    }
    const std::size_t done = std::fwrite(data, 1, n, sink.file);
    sink.written += std::int64_t(done);
    return done;
}

// libcurl's progress function: nonzero ends the transfer.
int progressOrCancel(void* user, curl_off_t total, curl_off_t received, curl_off_t, curl_off_t) noexcept
{
    if (transfersCancelled())
        return 1;
    const auto* progress = static_cast<const DownloadProgress*>(user);
    if (!progress || !*progress)
        return 0;
    try {
        return (*progress)(std::int64_t(received), std::int64_t(total)) ? 0 : 1;
    } catch (...) {
        return 1;
    }
}

struct Transfer {
    CURL* curl = nullptr;
    curl_slist* headers = nullptr;
    std::string pem;

    Transfer(const std::string& url, long totalMs)
    {
        globalInit();
        curl = curl_easy_init();
        if (!curl) return;
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L); // worker threads: no SIGALRM for DNS time-outs
        curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 5L);
        curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, gConnectMs.load());
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, totalMs);
        // A transfer that trickles below 1 byte/s for 15 s is dead.
        curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, 15L);
        curl_easy_setopt(curl, CURLOPT_USERAGENT, "VELTRO/1.05");
        // Never a cached copy: ask every proxy on the way for a fresh one.
        headers = curl_slist_append(headers, "Cache-Control: no-cache");
        headers = curl_slist_append(headers, "Pragma: no-cache");
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        pem = trustedCaPem();
        if (!pem.empty()) {
            curl_blob blob{pem.data(), pem.size(), CURL_BLOB_NOCOPY};
            curl_easy_setopt(curl, CURLOPT_CAINFO_BLOB, &blob);
        }
    }
    ~Transfer()
    {
        if (headers) curl_slist_free_all(headers);
        if (curl) curl_easy_cleanup(curl);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;
};

// A fresh file beside the target, so the final rename stays on one file system.
std::FILE* openTemporaryBeside(const std::string& path, std::string& tempPath)
{
    std::string pattern = path + ".part-XXXXXX";
    const int fd = ::mkstemp(pattern.data());
    if (fd < 0)
        return nullptr;
    ::fchmod(fd, 0644);
    std::FILE* file = ::fdopen(fd, "wb");
    if (!file) {
        ::close(fd);
        std::remove(pattern.c_str());
        return nullptr;
    }
    tempPath = pattern;
    return file;
}
} // namespace

CURLcode performTransfer(CURL* curl, const DownloadProgress* progress)
{
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, progressOrCancel);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, progress);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    if (transfersCancelled())
        return CURLE_ABORTED_BY_CALLBACK;
    return curl_easy_perform(curl);
}

std::string transferFailureText(int curlCode, long reply, const std::string& server)
{
    const std::string code = std::to_string(reply);
    switch (CURLcode(curlCode)) {
    case CURLE_OK: return {};
    case CURLE_ABORTED_BY_CALLBACK: return "abgebrochen";
    case CURLE_COULDNT_RESOLVE_HOST: return server + " unbekannt (Name nicht auflösbar)";
    case CURLE_COULDNT_RESOLVE_PROXY: return "Proxy unbekannt (Name nicht auflösbar)";
    case CURLE_COULDNT_CONNECT: return "keine Verbindung zum " + server;
    case CURLE_OPERATION_TIMEDOUT: return server + " antwortet nicht (Zeitüberschreitung)";
    case CURLE_LOGIN_DENIED: return "Anmeldung am " + server + " abgelehnt";
    case CURLE_REMOTE_ACCESS_DENIED: return "Zugriff vom " + server + " verweigert";
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH: return "Zertifikat des " + server + "s nicht vertrauenswürdig";
    case CURLE_SSL_CONNECT_ERROR: return "verschlüsselte Verbindung zum " + server + " gescheitert";
    case CURLE_USE_SSL_FAILED: return server + " bietet keine Verschlüsselung";
    case CURLE_HTTP_RETURNED_ERROR:
        if (reply == 404 || reply == 410)
            return "Datei nicht auf dem " + server + " gefunden (HTTP " + code + ")";
        return server + " meldet Fehler (HTTP " + code + ")";
    case CURLE_SEND_ERROR:
    case CURLE_WEIRD_SERVER_REPLY:
        // A mail server that refuses the sender, a recipient or the mail answers 4xx or 5xx;
        // libcurl reports that as a send error.
        if (reply == 552)
            return "Mail zu groß für den " + server + " (Antwort " + code + ")";
        if (reply >= 400)
            return server + " lehnt ab (Antwort " + code + ")";
        if (curlCode == CURLE_WEIRD_SERVER_REPLY)
            return "unerwartete Antwort vom " + server;
        return "Verbindung zum " + server + " unterbrochen";
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE: return "Verbindung zum " + server + " unterbrochen";
    case CURLE_FILESIZE_EXCEEDED: return "Datei zu groß";
    case CURLE_TOO_MANY_REDIRECTS: return "zu viele Weiterleitungen";
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT: return "Adresse des " + server + "s ungültig";
    case CURLE_READ_ERROR: return "Datei nicht lesbar";
    case CURLE_WRITE_ERROR: return "Datei kann nicht geschrieben werden";
    case CURLE_OUT_OF_MEMORY: return "kein Speicher frei";
    case CURLE_FAILED_INIT: return "libcurl nicht verfügbar";
    default: return std::string("Übertragung gescheitert (") + curl_easy_strerror(CURLcode(curlCode)) + ")";
    }
}

std::string trustedCaPem()
{
    const std::string extra = endpoints::caFile();
    return extra.empty() ? std::string() : caBundle(extra);
}

void setTransferTimeouts(long connectMs, long textTotalMs, long downloadTotalMs)
{
    gConnectMs = connectMs;
    gTextMs = textTotalMs;
    gDownloadMs = downloadTotalMs;
}

namespace {
FetchResult fetch(const std::string& url, bool errorPages)
{
    FetchResult result;
    Transfer t(url, gTextMs.load());
    if (t.curl && errorPages)
        curl_easy_setopt(t.curl, CURLOPT_FAILONERROR, 0L);
    if (!t.curl) {
        result.error = "libcurl nicht verfügbar";
        return result;
    }
    TextSink sink{&result.body, kTextLimit};
    curl_easy_setopt(t.curl, CURLOPT_WRITEFUNCTION, appendToString);
    curl_easy_setopt(t.curl, CURLOPT_WRITEDATA, &sink);
    curl_easy_setopt(t.curl, CURLOPT_MAXFILESIZE_LARGE, curl_off_t(kTextLimit));
    const CURLcode code = performTransfer(t.curl);
    curl_easy_getinfo(t.curl, CURLINFO_RESPONSE_CODE, &result.httpStatus);
    result.ok = code == CURLE_OK;
    if (!result.ok) {
        result.error = sink.overLimit || code == CURLE_FILESIZE_EXCEEDED
                           ? "Antwort zu groß (mehr als " + std::to_string(kTextLimit / 1024) + " KiB)"
                           : transferFailureText(code, result.httpStatus);
        std::string().swap(result.body);
    }
    return result;
}
} // namespace

FetchResult fetchText(const std::string& url)
{
    return fetch(url, false);
}

FetchResult fetchPage(const std::string& url)
{
    return fetch(url, true);
}

static_assert(kDownloadOverLimit == int(CURLE_FILESIZE_EXCEEDED));

int downloadToFile(const std::string& url, const std::string& path, const DownloadProgress& progress,
                   DownloadInfo* info, std::int64_t limit)
{
    std::string temp;
    std::FILE* file = openTemporaryBeside(path, temp);
    if (!file)
        return int(CURLE_WRITE_ERROR);
    Transfer t(url, gDownloadMs.load());
    if (!t.curl) {
        std::fclose(file);
        std::remove(temp.c_str());
        return int(CURLE_FAILED_INIT);
    }
    FileSink sink{file, limit};
    curl_easy_setopt(t.curl, CURLOPT_WRITEFUNCTION, appendToFile);
    curl_easy_setopt(t.curl, CURLOPT_WRITEDATA, &sink);
    curl_easy_setopt(t.curl, CURLOPT_MAXFILESIZE_LARGE, curl_off_t(limit));
    const CURLcode code = performTransfer(t.curl, &progress);
    long status = 0;
    curl_easy_getinfo(t.curl, CURLINFO_RESPONSE_CODE, &status);
    if (info) {
        const char* type = nullptr;
        curl_easy_getinfo(t.curl, CURLINFO_CONTENT_TYPE, &type);
        info->contentType = type ? type : "";
    }
    const bool closed = std::fclose(file) == 0;
    if (sink.overLimit) {
        std::remove(temp.c_str());
        return kDownloadOverLimit;
    }
    if (code != CURLE_OK || !closed) {
        std::remove(temp.c_str());
        if (code == CURLE_HTTP_RETURNED_ERROR && status >= 400)
            return int(status);
        return code != CURLE_OK ? int(code) : int(CURLE_WRITE_ERROR);
    }
    std::error_code ec;
    std::filesystem::rename(temp, path, ec);
    if (ec) {
        std::remove(temp.c_str());
        return int(CURLE_WRITE_ERROR);
    }
    return 0;
}

std::string urlEncodePathSegment(const std::string& text)
{
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : text) {
        const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')
                                || c == '-' || c == '.' || c == '_' || c == '~';
        if (unreserved) {
            out.push_back(char(c));
        } else {
            out.push_back('%');
            out.push_back(hex[c >> 4]);
            out.push_back(hex[c & 0xF]);
        }
    }
    return out;
}

} // namespace veltro
