#pragma once
// The tool's run-time errors: a number and a text, as the device tool has always shown them
// ("Laufzeitfehler '9': ..."). Handlers that trap errors look at the number (the file dialog's
// cancel is 32755); the configuration editor shows any of them as a fatal message.
#include <stdexcept>
#include <string>

namespace veltro {

enum class ErrNo : int {
    InvalidCall = 5,       // invalid procedure call or argument
    Overflow = 6,
    DivisionByZero = 11,
    SubscriptRange = 9,    // subscript out of range
    TypeMismatch = 13,
    FileNotFound = 53,
    InputPastEnd = 62,     // a read past the end of a text file
    PathAccess = 75,       // path/file access error (a file that cannot be opened or written)
    InvalidProperty = 380, // invalid property value
    DialogCancel = 32755,  // the file dialog's "Cancel" when cancel is reported as an error
};

class RuntimeError : public std::runtime_error {
public:
    explicit RuntimeError(ErrNo number, const std::string& detail = {});
    int number() const { return number_; }
    // The standard text for the number (German, as the tool's messages are).
    const std::string& text() const { return text_; }
    // "Laufzeitfehler '9':\n\nIndex außerhalb des gültigen Bereichs"
    std::string message() const;
    static std::string standardText(int number);

private:
    int number_;
    std::string text_;
};

} // namespace veltro
