#include "platform/mail.h"

#include "platform/curl_perform.h"
#include "platform/internet.h"

#include <QByteArray>

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <mutex>
#include <random>

namespace veltro {

namespace {
std::atomic<long> gConnectMs{30000};
std::atomic<long> gTotalMs{300000};

std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// RFC 5322 date in English whatever the process locale says.
std::string dateHeader()
{
    static const char* days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[64];
    std::snprintf(text, sizeof text, "Date: %s, %02d %s %04d %02d:%02d:%02d +0000", days[utc.tm_wday], utc.tm_mday,
                  months[utc.tm_mon], utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text;
}

// A header text with anything beyond ASCII as one encoded word.
std::string headerText(const std::string& text)
{
    for (unsigned char c : text)
        if (c >= 0x80 || c < 0x20)
            return "=?UTF-8?B?" + QByteArray::fromStdString(text).toBase64().toStdString() + "?=";
    return text;
}

std::string messageId()
{
    std::random_device random;
    char text[64];
    std::snprintf(text, sizeof text, "Message-ID: <%08x%08x.%lld@veltro-service>", random(), random(),
                  static_cast<long long>(std::time(nullptr)));
    return text;
}

// What is wrong with an address for the SMTP envelope, or nothing. It goes there between
// angle brackets as one line: a line break would start commands of its own ("RCPT TO:" to
// anyone), a blank or a bracket would end the address early.
const char* addressFault(const std::string& address)
{
    if (address.empty())
        return "fehlt";
    for (unsigned char c : address) {
        if (c == '\r' || c == '\n')
            return "ungültig (Zeilenumbruch)";
        if (c < 0x20 || c == 0x7F)
            return "ungültig (Steuerzeichen)";
        if (c == ' ')
            return "ungültig (Leerzeichen)";
        if (c == '<' || c == '>')
            return "ungültig (spitze Klammer)";
    }
    return nullptr;
}

struct CurlFree {
    void operator()(CURL* c) const { curl_easy_cleanup(c); }
    void operator()(curl_mime* m) const { curl_mime_free(m); }
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};
} // namespace

void setMailTimeouts(long connectMs, long totalMs)
{
    gConnectMs = connectMs;
    gTotalMs = totalMs;
}

namespace {
std::string send(const std::string& sTo, const std::string& sSubject, const std::string& sFrom,
                 const std::string& sBody, const std::string& sSmtpServer, int iSmtpPort,
                 const std::string& sSmtpUser, const std::string& sSmtpPword, const std::string& sFilePath,
                 bool bSmtpSSL, std::string& why)
{
    const auto failed = [&why](const std::string& reason) {
        why = reason;
        return std::string();
    };
    if (const char* fault = addressFault(sTo))
        return failed(std::string("Empfängeradresse ") + fault);
    if (const char* fault = addressFault(sFrom))
        return failed(std::string("Absenderadresse ") + fault);
    try {
        std::unique_ptr<CURL, CurlFree> curl(curl_easy_init());
        if (!curl) return failed(transferFailureText(CURLE_FAILED_INIT));
        CURL* c = curl.get();
        const bool implicitTls = bSmtpSSL && iSmtpPort == 465;
        const std::string url =
            std::string(implicitTls ? "smtps://" : "smtp://") + sSmtpServer + ":" + std::to_string(iSmtpPort);
        curl_easy_setopt(c, CURLOPT_URL, url.c_str());
        // STARTTLS whenever the server offers it; required when asked for.
        if (!implicitTls)
            curl_easy_setopt(c, CURLOPT_USE_SSL, long(bSmtpSSL ? CURLUSESSL_ALL : CURLUSESSL_TRY));
        const std::string pem = trustedCaPem();
        curl_blob blob{const_cast<char*>(pem.data()), pem.size(), CURL_BLOB_NOCOPY};
        if (!pem.empty())
            curl_easy_setopt(c, CURLOPT_CAINFO_BLOB, &blob);
        const std::string from = "<" + sFrom + ">";
        curl_easy_setopt(c, CURLOPT_MAIL_FROM, from.c_str());
        std::unique_ptr<curl_slist, CurlFree> rcpt(curl_slist_append(nullptr, ("<" + sTo + ">").c_str()));
        curl_easy_setopt(c, CURLOPT_MAIL_RCPT, rcpt.get());
        curl_easy_setopt(c, CURLOPT_USERNAME, sSmtpUser.c_str());
        curl_easy_setopt(c, CURLOPT_PASSWORD, sSmtpPword.c_str());
        // The account expects the basic login; curl would prefer PLAIN.
        curl_easy_setopt(c, CURLOPT_LOGIN_OPTIONS, "AUTH=LOGIN");
        curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT_MS, gConnectMs.load());
        curl_easy_setopt(c, CURLOPT_TIMEOUT_MS, gTotalMs.load());
        curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
        // The connection ends with the mail, under this handle and its progress function: a
        // kept connection would say QUIT only at clean-up, where nothing can cut short a
        // server that does not answer (a stalled one would hold it for two minutes).
        curl_easy_setopt(c, CURLOPT_FORBID_REUSE, 1L);

        // libcurl writes only the MIME headers; the rest are ours.
        std::unique_ptr<curl_slist, CurlFree> headers;
        for (const std::string& h : {dateHeader(), "From: " + sFrom, "To: " + sTo, "Subject: " + headerText(sSubject),
                                     messageId()}) {
            curl_slist* next = curl_slist_append(headers.get(), h.c_str());
            if (!next) return failed(transferFailureText(CURLE_OUT_OF_MEMORY));
            headers.release();
            headers.reset(next);
        }
        curl_easy_setopt(c, CURLOPT_HTTPHEADER, headers.get());

        std::unique_ptr<curl_mime, CurlFree> mime(curl_mime_init(c));
        curl_mimepart* text = curl_mime_addpart(mime.get());
        curl_mime_data(text, sBody.c_str(), CURL_ZERO_TERMINATED);
        curl_mime_type(text, "text/plain; charset=utf-8");
        const std::string attachment = trimmed(sFilePath);
        if (!attachment.empty()) {
            curl_mimepart* file = curl_mime_addpart(mime.get());
            if (curl_mime_filedata(file, attachment.c_str()) != CURLE_OK)
                return failed("Anhang nicht gefunden (" + attachment + ")");
            curl_mime_encoder(file, "base64");
        }
        curl_easy_setopt(c, CURLOPT_MIMEPOST, mime.get());

        const CURLcode rc = performTransfer(c);
        if (rc == CURLE_OK)
            return kMailSent;
        if (rc == CURLE_READ_ERROR)
            return failed("Anhang nicht lesbar (" + attachment + ")");
        long reply = 0; // the server's last answer: a refused sender, recipient or mail
        curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &reply);
        return failed(transferFailureText(rc, reply, "Mailserver"));
    } catch (...) {
        return failed("interner Fehler");
    }
}
} // namespace

std::string mailFailedLine(const std::string& why)
{
    return "++MAIL NICHT GESENDET: " + why;
}

std::string SendMail(const std::string& sTo, const std::string& sSubject, const std::string& sFrom,
                     const std::string& sBody, const std::string& sSmtpServer, int iSmtpPort,
                     const std::string& sSmtpUser, const std::string& sSmtpPword, const std::string& sFilePath,
                     bool bSmtpSSL, std::string* why)
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    std::string reasonText;
    const std::string result = send(sTo, sSubject, sFrom, sBody, sSmtpServer, iSmtpPort, sSmtpUser, sSmtpPword,
                                    sFilePath, bSmtpSSL, reasonText);
    if (why) *why = reasonText;
    return result;
}

} // namespace veltro
