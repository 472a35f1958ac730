#pragma once
// One mail through an SMTP server, with an optional attachment: the terminal report and the
// controller's image go to the support mailbox this way. A blocking call: run it on a worker.
#include <string>

namespace veltro {

// What SendMail returns when the server took the mail.
inline constexpr char kMailSent[] = "DATEI ERFOLGREICH GESENDET!";

// What became of one mail: kMailSent, or an empty text and the reason in German.
struct MailResult {
    std::string text;
    std::string why;
    bool sent() const { return !text.empty(); }
};

// The terminal's line for a mail that did not go out: "++MAIL NICHT GESENDET: " and the reason.
std::string mailFailedLine(const std::string& why);

// Sends the mail and returns kMailSent, or an empty text on any failure; `why` (optional)
// gets the reason in German. Never throws. The login is AUTH LOGIN with the account given; a
// blank or empty `sFilePath` sends no attachment; a missing attachment file sends nothing.
// Addresses with a blank, a line break or an angle bracket are refused before any connection:
// in the SMTP envelope they would end the address early or add commands of their own.
// Once transfersCancelled() is set no mail starts, and a running one is given up within a
// second or two (libcurl looks about once a second while it waits for the server, and the
// connection's goodbye may cost one more look).
// The connection goes over TLS when the server offers STARTTLS (certificate verified against
// the system's CAs and VELTRO_CA_FILE); `bSmtpSSL` requires TLS (implicit on port 465). The
// attachment goes base64 encoded, so binary images and logs with bare CR arrive unchanged.
std::string SendMail(const std::string& sTo, const std::string& sSubject, const std::string& sFrom,
                     const std::string& sBody, const std::string& sSmtpServer, int iSmtpPort,
                     const std::string& sSmtpUser, const std::string& sSmtpPword, const std::string& sFilePath,
                     bool bSmtpSSL, std::string* why = nullptr);

// Time limits of a mail: connection including greeting and login (30 s), and the whole send.
void setMailTimeouts(long connectMs, long totalMs);

} // namespace veltro
