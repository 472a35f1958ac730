#include "device/protocol.h"

namespace veltro {

std::uint8_t byteSum(const Bytes& bytes, std::size_t from, std::size_t to)
{
    unsigned sum = 0;
    for (std::size_t i = from; i <= to && i < bytes.size(); ++i)
        sum = (sum + bytes[i]) & 0xFF;
    return std::uint8_t(sum);
}

Handshake resetHandshake(SerialLink& link, std::uint8_t request, int attempts,
                         std::chrono::milliseconds perAttempt)
{
    Handshake result;
    for (int counter = attempts; counter >= 1; --counter) {
        result.counter = counter;
        link.discardInput();
        if (!link.writeByte(request) || link.lost())
            return result;
        const Deadline deadline = link.now() + perAttempt;
        for (;;) {
            if (link.bytesWaiting() == 1) {
                const Bytes echo = link.readAll();
                if (echo.size() == 1 && echo[0] == request) {
                    result.ok = true;
                    return result;
                }
            }
            if (link.lost() || link.now() >= deadline)
                break;
            link.waitForData(deadline);
        }
        if (link.lost())
            return result;
    }
    return result;
}

bool waitForBytes(SerialLink& link, std::size_t count, std::chrono::milliseconds limit)
{
    const Deadline deadline = link.now() + limit;
    while (link.bytesWaiting() < count) {
        if (link.lost() || link.now() >= deadline)
            return false;
        link.waitForData(deadline);
    }
    return true;
}

std::string imageSerial(const Bytes& image)
{
    std::string serial;
    for (std::size_t i = kPosSerial; i < kPosSerial + 4 && i < image.size(); ++i)
        serial += HexByte2Char(image[i]);
    return serial;
}

} // namespace veltro
