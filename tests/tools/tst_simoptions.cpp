// Command line of vxscanner-sim: accepted spellings and defaults, rejected
// values with their messages, and the binary's exit codes.
#include "simargs.h"
#include "simprocess.h"
#include "tools/sim/simoptions.h"

#include <QtTest>

using vxsim::SimOptions;

namespace {

// Everything parse() decides, in one comparable line.
QString fingerprint(const SimOptions& o)
{
    return QString("%1:%2 rate %3 pixels %4 %5%6 bpp %7 datatyp %8 mode %9 device %10 count %11 "
                   "duration %12")
        .arg(QString::fromStdString(o.host))
        .arg(o.port)
        .arg(o.rate)
        .arg(o.pixels)
        .arg(QString::fromStdString(o.protocolText()))
        .arg(o.subProtocol == 1 ? (o.shortLayout ? " short" : " long") : "")
        .arg(o.bpp)
        .arg(o.datatyp)
        .arg(o.mode)
        .arg(o.device)
        .arg(o.count)
        .arg(o.duration);
}

} // namespace

class TstSimOptions : public QObject
{
    Q_OBJECT
private slots:
    void accepted_data();
    void accepted();
    void rejected_data();
    void rejected();
    void exitCodes_data();
    void exitCodes();
};

void TstSimOptions::accepted_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("expected");
    const QString defaults = "127.0.0.1:6101 rate 200 pixels 2048 1.2 bpp 8 datatyp 2 mode 0 "
                             "device 0 count 0 duration 0";
    QTest::newRow("defaults") << QStringList{} << defaults;
    QTest::newRow("both spellings")
        << QStringList{"--host=10.0.0.7", "--port", "7000", "--rate=20000.5", "--pixels", "1"}
        << "10.0.0.7:7000 rate 20000.5 pixels 1 1.2 bpp 8 datatyp 2 mode 0 device 0 count 0 "
           "duration 0";
    // The short 1.1 layout changes the defaults of bpp and datatyp only
    // where they are not given.
    QTest::newRow("1.1 default long") << QStringList{"--protocol", "1.1"}
                                      << "127.0.0.1:6101 rate 200 pixels 2048 1.1 long bpp 8 "
                                         "datatyp 2 mode 0 device 0 count 0 duration 0";
    QTest::newRow("1.1 short defaults") << QStringList{"--protocol=1.1", "--layout=short"}
                                        << "127.0.0.1:6101 rate 200 pixels 2048 1.1 short bpp 5 "
                                           "datatyp 3 mode 0 device 0 count 0 duration 0";
    QTest::newRow("1.1 short explicit")
        << QStringList{"--layout", "short", "--bpp", "9", "--datatyp", "7", "--protocol", "1.1"}
        << "127.0.0.1:6101 rate 200 pixels 2048 1.1 short bpp 9 datatyp 7 mode 0 device 0 count 0 "
           "duration 0";
    QTest::newRow("1.3 limits") << QStringList{"--protocol", "1.3",      "--pixels",
                                               "199999",     "--bpp",    "63",
                                               "--datatyp",  "9999",     "--mode",
                                               "4294967295", "--device", "4294967295",
                                               "--count",    "1"}
                                << "127.0.0.1:6101 rate 200 pixels 199999 1.3 bpp 63 datatyp 9999 "
                                   "mode 4294967295 device 4294967295 count 1 duration 0";
    QTest::newRow("duration") << QStringList{"--duration", "0.25", "--bpp", "5"}
                              << "127.0.0.1:6101 rate 200 pixels 2048 1.2 bpp 5 datatyp 2 mode 0 "
                                 "device 0 count 0 duration 0.25";
}

void TstSimOptions::accepted()
{
    QFETCH(QStringList, args);
    QFETCH(QString, expected);
    SimOptions o;
    std::string error;
    QCOMPARE(SimArgs::parse(args, o, error), SimOptions::Outcome::Run);
    QCOMPARE(fingerprint(o), expected);
}

void TstSimOptions::rejected_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message"); // part of the error text
    QTest::newRow("unknown option") << QStringList{"--pixel", "5"} << "unknown option --pixel";
    QTest::newRow("positional") << QStringList{"6101"} << "unexpected argument '6101'";
    QTest::newRow("missing value") << QStringList{"--rate"} << "missing value for --rate";
    QTest::newRow("empty value") << QStringList{"--port="} << "bad value '' for --port";
    QTest::newRow("non-numeric") << QStringList{"--pixels", "12x"}
                                 << "bad value '12x' for --pixels";
    QTest::newRow("negative") << QStringList{"--pixels=-1"} << "for --pixels";
    QTest::newRow("pixels 0") << QStringList{"--pixels", "0"} << "for --pixels";
    QTest::newRow("pixels 200000") << QStringList{"--pixels", "200000"} << "for --pixels";
    QTest::newRow("bpp 64") << QStringList{"--bpp", "64"} << "for --bpp";
    QTest::newRow("bpp 1") << QStringList{"--bpp", "1"} << "for --bpp";
    QTest::newRow("datatyp 1") << QStringList{"--datatyp", "1"} << "for --datatyp";
    QTest::newRow("datatyp 10000") << QStringList{"--datatyp", "10000"} << "for --datatyp";
    QTest::newRow("rate 0") << QStringList{"--rate", "0"} << "for --rate";
    QTest::newRow("rate nan") << QStringList{"--rate", "nan"} << "for --rate";
    QTest::newRow("rate inf") << QStringList{"--rate", "inf"} << "for --rate";
    QTest::newRow("port 0") << QStringList{"--port", "0"} << "for --port";
    QTest::newRow("port 65536") << QStringList{"--port", "65536"} << "for --port";
    QTest::newRow("count 0") << QStringList{"--count", "0"} << "for --count";
    QTest::newRow("duration -1") << QStringList{"--duration", "-1"} << "for --duration";
    QTest::newRow("protocol 1.4") << QStringList{"--protocol", "1.4"} << "for --protocol";
    QTest::newRow("protocol 1.20") << QStringList{"--protocol", "1.20"} << "for --protocol";
    QTest::newRow("layout value") << QStringList{"--protocol", "1.1", "--layout", "tall"}
                                  << "for --layout";
    QTest::newRow("layout without 1.1")
        << QStringList{"--layout", "long"} << "--layout applies to protocol 1.1 only";
    QTest::newRow("mode with 1.1") << QStringList{"--protocol", "1.1", "--mode", "1"}
                                   << "--mode applies to protocols 1.2 and 1.3";
    QTest::newRow("count and duration")
        << QStringList{"--count", "5", "--duration", "1"} << "exclude each other";
    QTest::newRow("twice") << QStringList{"--port", "1", "--port=2"} << "--port given twice";
    // Range and intensity must fit the record: 5 bytes, 8 for the long 1.1
    // layout (intensity at bytes 6..7).
    QTest::newRow("bpp below 1.2 basic") << QStringList{"--bpp", "4"} << "at least 5 bytes";
    QTest::newRow("bpp below 1.1 long")
        << QStringList{"--protocol", "1.1", "--bpp", "7"} << "at least 8 bytes";
    QTest::newRow("help with value") << QStringList{"--help=1"} << "--help takes no value";
}

void TstSimOptions::rejected()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    SimOptions o;
    std::string error;
    QCOMPARE(SimArgs::parse(args, o, error), SimOptions::Outcome::Error);
    QVERIFY2(QString::fromStdString(error).contains(message), error.c_str());
}

void TstSimOptions::exitCodes_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text"); // expected in stdout (code 0) or stderr
    QTest::newRow("help") << QStringList{"--pixels", "5", "--help"} << 0 << "usage: vxscanner-sim";
    QTest::newRow("bad value") << QStringList{"--bpp", "x"} << 2 << "bad value 'x' for --bpp";
    QTest::newRow("unknown") << QStringList{"--verbose"} << 2 << "unknown option --verbose";
    QTest::newRow("unresolvable host") << QStringList{"--host", "bad..host", "--count", "1"} << 2
                                       << "cannot resolve host 'bad..host'";
    // Nobody listens on the port: the refused datagrams are counted and the
    // simulator still ends normally after its lines.
    QTest::newRow("nobody listens")
        << QStringList{"--port", "9", "--count", "20", "--rate", "2000", "--pixels", "64"} << 0
        << "total ";
}

void TstSimOptions::exitCodes()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, text);
    std::string out, err;
    QCOMPARE(SimProcess::run(SimArgs::toStd(args), 10000, &out, &err), code);
    const std::string& where = code == 0 ? out : err;
    QVERIFY2(QString::fromStdString(where).contains(text), where.c_str());
    if (QTest::currentDataTag() == QByteArray("nobody listens"))
        QVERIFY2(QString::fromStdString(out).contains(": 20 lines"), out.c_str());
}

QTEST_GUILESS_MAIN(TstSimOptions)
#include "tst_simoptions.moc"
