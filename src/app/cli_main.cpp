#include "app/cli.h"

#include <QCoreApplication>

#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

namespace {

veltro::CliStop stop;

// Ctrl-C during a batch asks its jobs to stop and close their ports; a second one, or one at
// any other time, ends the program as it always did.
extern "C" void onInterrupt(int)
{
    std::signal(SIGINT, SIG_DFL);
    if (stop.armed)
        stop.requested = true;
    else
        std::raise(SIGINT);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::vector<std::string> args(argv + 1, argv + argc);
    veltro::CliContext context;
    winsize size{};
    if (isatty(STDERR_FILENO))
        context.columns = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
    context.stop = &stop;
    static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");
    std::signal(SIGINT, onInterrupt);
    return veltro::runCli(args, std::cout, std::cerr, context);
}
