// A virtual controller on a pseudo-terminal: the tool opens path() as if it were the serial
// port of a real controller. The device's behaviour lives in DeviceModel; this class owns the
// pty pair and a thread that moves bytes between the master side and the model.
//
// The controller keeps its own descriptor of the slave side open (raw, no echo) for its whole
// life, so the line does not hang up when the tool closes and reopens the port. For the same
// reason the controller cannot tell when the tool opens the port: its terminal banner is the
// answer to an empty line (see DeviceModel).
//
// The same descriptor shares the line settings the tool makes on its own, so the controller
// sees the speed the tool opened the port with (lineBaud) and paces tunnel output at it, and,
// with setPacedInput, what it takes in as well.
//
// Every setter and getter may be called from any thread, before or after start().
#pragma once

#include "sim/device_model.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace veltro::sim {

class VirtualController {
public:
    VirtualController();   // opens the pty pair; throws std::runtime_error on failure
    ~VirtualController();  // stops the thread and closes both sides
    VirtualController(const VirtualController&) = delete;
    VirtualController& operator=(const VirtualController&) = delete;

    std::string path() const { return path_; }  // /dev/pts/N
    void start();
    void stop();

    // Identification image
    void setConfiguration(const Bytes& data);
    void setImageByte(std::size_t position, std::uint8_t value);
    void setSerial(std::uint32_t serial);
    void setLayout(std::uint8_t value);
    void setHardware(std::uint8_t value);
    void setControllerType(std::uint8_t value);
    void setFirmware(std::uint16_t value);
    Bytes image() const;

    // Data block and word readouts
    void setDataBlockByte(std::size_t position, std::uint8_t value);
    void setManufacturingDate(int year, int month, int day);
    void setDataSerialByte(std::uint8_t value);
    void setLambdaCalibration(std::uint16_t value);
    Bytes dataBlock() const;
    void setWord(std::uint16_t value);

    // Timing and faults
    void setResetDelay(Clock::duration delay);
    void setHandshakeDelay(Clock::duration delay);
    void setLineRate(bool on);
    void setSilent(bool on);
    // On: the controller takes bytes from the pty no faster than lineBaud() carries them (10
    // bits a byte), in every mode, as a real line would. A tool that writes faster fills the
    // pty and its non-blocking writes fail with EAGAIN until the controller catches up. Each
    // byte is handed to the model at the time its last bit would have arrived. Off (the
    // default): it takes whatever is there at once.
    void setPacedInput(bool on);
    void setFaults(Request request, const AnswerFaults& faults);
    void setBootFaults(const BootFaults& faults);
    // Closes the master side now: the tool's port sees a hang-up / I/O error, as with an
    // adapter pulled out of the PC. There is no way back; make a new controller.
    void unplug();
    bool unplugged() const;

    // Text terminal
    Bytes banner() const;
    void setStreamOnOpen(std::size_t bytes);  // stream text after each banner (0: none)
    // Sends streamPattern(bytes) from now on at 92,160 bytes/s, after whatever is still going
    // out. A request the controller answers meanwhile cuts it off, as the restart would.
    void streamText(std::size_t bytes);
    static Bytes streamPattern(std::size_t bytes) { return DeviceModel::streamPattern(bytes); }
    std::size_t streamedBytes() const;  // stream text put on the line so far, all streams
    bool streamFinished() const;        // no stream text left, and all of it written to the pty
    std::vector<std::string> terminalLines() const;  // lines received up to their CR, without it
    std::string partialLine() const;                  // text received after the last CR

    // CAN tunnel (see DeviceModel): the controller as the tool's CAN interface.
    void setTunnelMode(bool on);
    void setTunnelFrameRate(double framesPerSecond);  // "}x" records, one per write; 0: none
    // From now on, after whatever is still going out, paced at lineBaud(). A burst is n
    // records back to back handed over in a single write once its last byte has crossed the
    // wire (n*17*10/baud seconds); the pty may still pass it on in parts if the tool is slow
    // to read. When the tool does not read, the controller holds back after about 4 KB not
    // yet in the pty, and the frame rate's frames beyond DeviceModel::MaxTunnelBacklog are lost.
    void tunnelBurst(int n);
    void tunnelChecksumError();
    void tunnelSendError(std::uint8_t code);
    static Bytes tunnelFrameBody(std::uint32_t k) { return DeviceModel::tunnelFrameBody(k); }
    std::vector<Bytes> tunnelBodies() const;       // complete bodies received, in order
    std::vector<Clock::time_point> tunnelBodyTimes() const;  // when each of them was completed
    std::size_t tunnelBodyCount() const;           // bodies completed in all (cheap to poll)
    int tunnelPackets() const;                     // 0x7D packet starts received
    std::size_t tunnelStrayBytes() const;          // bytes before the first 0x7D
    std::vector<Bytes> tunnelSentBodies() const;   // bodies of the "}x" records handed out
    // The "}x" records in the order their last byte went into the pty, with the time it did;
    // the last DeviceModel::MaxSentKept of them. A record the pty has not taken yet is missing.
    struct TunnelSent {
        std::uint32_t frame = 0;  // its body is tunnelFrameBody(frame)
        Clock::time_point at;
    };
    std::vector<TunnelSent> tunnelSentTimes() const;
    // The output speed set on the line, 921600 when the controller cannot tell (a speed
    // outside the standard table, set through termios2).
    std::uint32_t lineBaud() const;

    // What the controller has received and done
    int requestCount(Request request) const;
    Bytes received() const;
    BootReport bootReport() const;
    Bytes receivedImage() const;
    std::uint8_t receivedMode() const;
    int blocksAccepted() const;
    int nakCount() const;
    bool transferComplete() const;
    bool transferCancelled() const;

    // Anything not covered above, under the controller's lock.
    void withModel(const std::function<void(DeviceModel&)>& change);

private:
    template <class F> auto locked(F f) const
    {
        std::lock_guard lock(mutex_);
        return f(model_);
    }
    void changed(const std::function<void(DeviceModel&)>& change);
    void run();
    void wake();
    void closeMaster();

    mutable std::mutex mutex_;
    std::condition_variable lineClosedCv_;
    bool lineClosed_ = false;  // under mutex_
    std::size_t unwritten_ = 0;  // under mutex_: bytes taken from the model, not yet in the pty
    bool unplugRequested_ = false;  // under mutex_
    std::deque<TunnelSent> sentTimes_;  // under mutex_
    std::atomic<bool> pacedInput_{false};
    DeviceModel model_;
    int master_ = -1;
    int slave_ = -1;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
    std::string path_;
    std::thread thread_;
    std::atomic<bool> running_{false};
};

}  // namespace veltro::sim
