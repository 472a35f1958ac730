#pragma once
// For the benchmarks that run the main window's terminal: the machine's ports left out, the
// virtual controller at `ptyPath` as port 4, no update server; the window started, connected
// and its terminal opened. False (with a line on stderr) when the terminal port did not open.
#include "app/window/main_window.h"

#include <QSerialPort>
#include <QSignalSpy>

#include <cstdio>
#include <cstdlib>
#include <string>

inline bool openTerminalWindow(veltro::MainWindow& w, const std::string& ptyPath, const std::string& home)
{
    ::setenv("VELTRO_SYSTEM_PORTS", "0", 1);
    ::setenv("VELTRO_HOME", home.c_str(), 1);
    ::setenv("VELTRO_PORTS", ("4=" + ptyPath).c_str(), 1);
    ::setenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9", 1);
    ::setenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9", 1);
    QSignalSpy started(&w, &veltro::MainWindow::startupFinished);
    w.show();
    w.Form_Load();
    started.wait(30000);
    QSignalSpy connected(&w, &veltro::MainWindow::connectFinished);
    w.verbinden_Click();
    connected.wait(30000);
    w.Command1_Click();
    if (!w.telnet->MSComm3->isOpen())
        std::fprintf(stderr, "the terminal port did not open\n");
    return w.telnet->MSComm3->isOpen();
}
