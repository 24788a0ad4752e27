// Three ports receiving at once over loopback UDP from the simulator, each
// with another protocol and column layout, so that the receive threads
// contend for the shared layout. Every line must carry the layout of its own
// port, and every raw line must be either delivered or counted as dropped.
// Runs under ThreadSanitizer too.
#include "models/streamdatamodel.h"
#include "stream/myvxlinedatastream.h"
#include "stream/streamdatacontroller.h"

#include <QProcess>
#include <QtTest>

using namespace vxlindral;

namespace {
// Runs the event loop until `done` holds or `ms` pass, pausing 1 ms between
// rounds (the QTRY_ macros pause 10 ms, which lets the queued lines pile up).
template <typename F> bool runUntil(F done, int ms)
{
    const QDeadlineTimer deadline(ms);
    while (!done() && !deadline.hasExpired())
        QTest::qWait(1);
    return done();
}
} // namespace

class TestMultiPort : public QObject
{
    Q_OBJECT
private slots:
    void threePortsAtOnce()
    {
        registerLineType();
        struct Port
        {
            QString options;      // of the simulator
            int datatyp, columns; // of every line
            // Members go in reverse: the controller (its receive thread)
            // before the model it delivers to.
            std::shared_ptr<StreamDataModel> model = std::make_shared<StreamDataModel>();
            std::shared_ptr<StreamDataController> controller =
                std::make_shared<StreamDataController>(model);
            std::unique_ptr<QProcess> sim = std::make_unique<QProcess>();
            int delivered = 0;
            bool layoutsMatch = true;
        };
        Port ports[] = {
            {"--protocol 1.2 --datatyp 2 --bpp 5 --pixels 256", 2, 2},
            {"--protocol 1.3 --datatyp 4 --mode 1 --bpp 12 --pixels 200", 4, 6},
            {"--protocol 1.1 --layout short --pixels 300", 3, 3},
        };
        for (Port& p : ports) {
            QVERIFY(p.controller->startStream(0, 0));
            connect(p.model.get(), &StreamDataModel::newLine, this, [&p](LineType line) {
                ++p.delivered;
                if (line->parser->datatyp() != p.datatyp || line->parser->colCount() != p.columns ||
                    line->points.size() != std::size_t(line->pixel))
                    p.layoutsMatch = false;
            });
            const QString port = QString::number(p.controller->localPort());
            p.sim->start(QStringLiteral(VX_SIM_PATH),
                         (p.options + " --count 90 --rate 1500 --port " + port).split(' '));
        }
        // The event loop runs while the simulators send, so lines are taken in
        // as they come. Loopback may drop datagrams under load; whatever
        // arrives is either delivered or counted as dropped.
        for (Port& p : ports) {
            QVERIFY(runUntil([&] { return p.sim->state() == QProcess::NotRunning; }, 30000));
            QCOMPARE(p.sim->exitCode(), 0);
            QVERIFY(runUntil(
                [&] {
                    const LineQueue::Counters c = p.controller->handoverCounters();
                    return p.controller->frames() > 0 && c.linesTaken == uint64_t(p.delivered) &&
                           p.controller->frames() == c.linesTaken + c.droppedMemory;
                },
                10000));
            QVERIFY(p.layoutsMatch);
            QVERIFY(p.delivered > 0);
            QCOMPARE(p.controller->counters().callbackErrors, uint64_t(0));
        }
    }
};

QTEST_GUILESS_MAIN(TestMultiPort)
#include "tst_multiport.moc"
