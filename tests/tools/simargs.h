#pragma once
#include "tools/sim/simoptions.h"

#include <QStringList>
#include <string>
#include <vector>

// Command lines for the simulator tests: parse a list of arguments the way
// main() does, and convert between the test data's and the process's forms.
// Any thread.
struct SimArgs
{
    static vxsim::SimOptions::Outcome parse(const QStringList& args, vxsim::SimOptions& out,
                                            std::string& error);
    // The options of a command line the test knows to be valid.
    static vxsim::SimOptions options(const QStringList& args);
    static std::vector<std::string> toStd(const QStringList& args);
};
