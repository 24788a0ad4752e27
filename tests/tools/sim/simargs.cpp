#include "simargs.h"

#include <QStringList>
#include <QtGlobal>

std::vector<std::string> SimArgs::split(const QString& line)
{
    std::vector<std::string> args;
    for (const QString& a : line.split(' ', Qt::SkipEmptyParts))
        args.push_back(a.toStdString());
    return args;
}

vxsim::SimOptions::Outcome SimArgs::parse(const QString& line, vxsim::SimOptions& out,
                                          std::string& error)
{
    std::vector<std::string> args = split(line);
    args.insert(args.begin(), "vxscanner-sim");
    std::vector<const char*> argv;
    for (const std::string& a : args)
        argv.push_back(a.c_str());
    return vxsim::SimOptions::parse(static_cast<int>(argv.size()), argv.data(), out, error);
}

vxsim::SimOptions SimArgs::options(const QString& line)
{
    vxsim::SimOptions o;
    std::string error;
    if (parse(line, o, error) != vxsim::SimOptions::Outcome::Run)
        qFatal("bad test options '%s': %s", qPrintable(line), error.c_str());
    return o;
}
