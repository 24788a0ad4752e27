#pragma once
#include "tools/sim/simoptions.h"

#include <QString>
#include <string>
#include <vector>

// Command lines for the simulator tests, written as one string of
// space-separated arguments ("--protocol 1.1 --bpp 12"). Any thread.
struct SimArgs
{
    static std::vector<std::string> split(const QString& line);
    // Parses `line` the way main() does.
    static vxsim::SimOptions::Outcome parse(const QString& line, vxsim::SimOptions& out,
                                            std::string& error);
    // The options of a command line the test knows to be valid.
    static vxsim::SimOptions options(const QString& line);
};
