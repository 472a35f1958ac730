#pragma once
// The device terminal's logic. Its text is kept as the device sent it, one char per byte
// (Windows-1252), bare CR included: a Qt text document turns every CR into a paragraph break
// and gives it back as LF, so the report, the mail and the tests read this text, and the
// window is only a view of it.
#include "platform/mail.h"

#include <string>
#include <string_view>

namespace veltro {

class TerminalText {
public:
    // Device output and the tool's own lines, appended as they stand (no line break added).
    void append(std::string_view bytes);
    const std::string& text() const { return text_; }
    // What has been appended since the last call: the view shows it in one go. It is the end
    // of text() itself, not a copy, so it is only good until the next append.
    std::string_view takeUnshown();
    bool hasUnshown() const { return shown_ < text_.size(); }

private:
    std::string text_;
    std::size_t shown_ = 0;
};

// Where the terminal's output goes: the text box that shows it keeps the terminal's text.
class TerminalDisplay {
public:
    virtual ~TerminalDisplay() = default;
    // Bytes as they stand (device output, the tool's own texts).
    virtual void append(const std::string& bytes) = 0;
    // One of the tool's "++" lines: CR LF, then the line.
    void appendLine(const std::string& line) { append("\r\n" + line); }
    virtual const TerminalText& text() const = 0;
};

// The opening lines: CR "TERMINAL READY..." CR "SERIALNUMBER: " serial CR.
std::string terminalGreeting(const std::string& serial);

// The last key released in the input line as the terminal records it: Windows key code, "-",
// shift state (1 Shift, 2 Ctrl, 4 Alt, added up). Escape without modifiers is "27-0".
std::string lastKeyText(int windowsKeyCode, int shiftState);

// What Enter in the input line does. "SENDEEPROM" as the first ten characters mails the
// controller's image and sends nothing; after Escape the line goes out without terminator;
// otherwise with one CR.
struct LineEntry {
    bool mailImage = false;
    std::string bytes; // to the device
};
LineEntry lineEntry(const std::string& line, const std::string& lastKey);

// The line the terminal shows when the image mail starts.
inline constexpr char kImageMailLine[] = "\r\n++SEND DEVICE EEPROM TO SERVER...";

// One mail of the terminal: the report or the controller's image, to the support mailbox.
struct MailRequest {
    std::string to, subject, from, body, server;
    int port = 25;
    std::string user, password, file;
    bool ssl = false;
};
// "Nachricht VELTRO S/N:" + serial with folder/terminal_log.txt.
MailRequest reportMail(const std::string& serial, const std::string& folder);
// "EEPROM DOWNLOAD VELTRO S/N:" + serial with folder/serial.eep.
MailRequest imageMail(const std::string& serial, const std::string& folder);
// SendMail with the request: "DATEI ERFOLGREICH GESENDET!", or empty with the reason. Blocking.
MailResult sendMail(const MailRequest& mail);

// terminal_log.txt in `folder`, rewritten with the terminal's text + CR LF. False when it
// cannot be written.
bool writeTerminalLog(const std::string& folder, const std::string& text);

} // namespace veltro
