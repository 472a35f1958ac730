#include "terminal/terminal.h"

#include "platform/endpoints.h"
#include "platform/mail.h"

#include <charconv>
#include <fstream>

namespace veltro {

namespace {
// The account the tool has always mailed with.
constexpr char kMailUser[] = "w519e27c";
constexpr char kMailPassword[] = "Hr5nWqa8LpteUy2KmbXo";

MailRequest supportMail(const std::string& subject, const std::string& file)
{
    MailRequest m;
    m.to = m.from = endpoints::supportMail();
    m.subject = subject;
    m.body = "Datenlog anbei";
    // VELTRO_SMTP may name a port ("host:2525"); the account's port is 25.
    const std::string server = endpoints::smtpServer();
    const auto colon = server.rfind(':');
    int port = 0;
    if (colon != std::string::npos &&
        std::from_chars(server.data() + colon + 1, server.data() + server.size(), port).ec == std::errc() && port > 0) {
        m.server = server.substr(0, colon);
        m.port = port;
    } else {
        m.server = server;
        m.port = 25;
    }
    m.user = kMailUser;
    m.password = kMailPassword;
    m.file = file;
    m.ssl = false;
    return m;
}
} // namespace

void TerminalText::append(std::string_view bytes)
{
    text_.append(bytes);
}

std::string_view TerminalText::takeUnshown()
{
    const std::string_view out = std::string_view(text_).substr(shown_);
    shown_ = text_.size();
    return out;
}

std::string terminalGreeting(const std::string& serial)
{
    return "\rTERMINAL READY...\rSERIALNUMBER: " + serial + "\r";
}

std::string lastKeyText(int windowsKeyCode, int shiftState)
{
    return std::to_string(windowsKeyCode) + "-" + std::to_string(shiftState);
}

LineEntry lineEntry(const std::string& line, const std::string& lastKey)
{
    LineEntry e;
    if (line.compare(0, 10, "SENDEEPROM") == 0 && line.size() >= 10)
        e.mailImage = true;
    else if (lastKey == "27-0")
        e.bytes = line;
    else
        e.bytes = line + "\r";
    return e;
}

MailRequest reportMail(const std::string& serial, const std::string& folder)
{
    return supportMail("Nachricht VELTRO S/N:" + serial, folder + "/terminal_log.txt");
}

MailRequest imageMail(const std::string& serial, const std::string& folder)
{
    return supportMail("EEPROM DOWNLOAD VELTRO S/N:" + serial, folder + "/" + serial + ".eep");
}

MailResult sendMail(const MailRequest& m)
{
    MailResult r;
    r.text = SendMail(m.to, m.subject, m.from, m.body, m.server, m.port, m.user, m.password, m.file, m.ssl, &r.why);
    return r;
}

bool writeTerminalLog(const std::string& folder, const std::string& text)
{
    std::ofstream out(folder + "/terminal_log.txt", std::ios::binary | std::ios::trunc);
    out << text << "\r\n";
    return bool(out);
}

} // namespace veltro
