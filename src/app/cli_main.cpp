#include "app/cli.h"

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::vector<std::string> args(argv + 1, argv + argc);
    return veltro::runCli(args, std::cout, std::cerr);
}
