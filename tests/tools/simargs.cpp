#include "simargs.h"

#include <QByteArray>
#include <QtGlobal>

vxsim::SimOptions::Outcome SimArgs::parse(const QStringList& args, vxsim::SimOptions& out,
                                          std::string& error)
{
    std::vector<QByteArray> bytes{"vxscanner-sim"};
    for (const QString& a : args)
        bytes.push_back(a.toUtf8());
    std::vector<const char*> argv;
    for (const QByteArray& b : bytes)
        argv.push_back(b.constData());
    return vxsim::SimOptions::parse(static_cast<int>(argv.size()), argv.data(), out, error);
}

vxsim::SimOptions SimArgs::options(const QStringList& args)
{
    vxsim::SimOptions o;
    std::string error;
    if (parse(args, o, error) != vxsim::SimOptions::Outcome::Run)
        qFatal("bad test options: %s", error.c_str());
    return o;
}

std::vector<std::string> SimArgs::toStd(const QStringList& args)
{
    std::vector<std::string> v;
    for (const QString& s : args)
        v.push_back(s.toStdString());
    return v;
}
