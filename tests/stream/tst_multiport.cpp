// Three ports receiving at once over loopback UDP from the simulator, each
// with another protocol and column layout, so that the receive threads
// contend for the shared layout. Every line must carry the layout of its own
// port, and every raw line must be either delivered or counted as skipped.
// Runs under ThreadSanitizer too.
#include "models/streamdatamodel.h"
#include "stream/myvxlinedatastream.h"
#include "stream/streamdatacontroller.h"

#include <QProcess>
#include <QtTest>

using namespace vxlindral;

namespace {
// Runs the event loop until `done` holds or `ms` pass (QTest's waits sleep
// between rounds, which would let the queued lines pile up).
template <typename F> bool runUntil(F done, int ms)
{
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    poll.start(5);
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
    return done();
}
} // namespace

class TestMultiPort : public QObject
{
    Q_OBJECT
private slots:
    void threePortsAtOnce();
};

void TestMultiPort::threePortsAtOnce()
{
    registerLineType();
    struct Port
    {
        QStringList args;
        int datatyp;
        int columns;
        std::shared_ptr<StreamDataModel> model;
        std::shared_ptr<StreamDataController> controller;
        int delivered = 0;
        bool layoutsMatch = true;
    };
    const int kLines = 90;
    // (simulator options, expected datatyp and column count of every line)
    std::vector<Port> ports{
        {{"--protocol", "1.2", "--datatyp", "2", "--bpp", "5", "--pixels", "256"}, 2, 2, {}, {}},
        {{"--protocol", "1.3", "--datatyp", "4", "--mode", "1", "--bpp", "12", "--pixels", "200"},
         4,
         6,
         {},
         {}},
        {{"--protocol", "1.1", "--layout", "short", "--pixels", "300"}, 3, 3, {}, {}},
    };

    std::vector<std::unique_ptr<QProcess>> sims;
    for (Port& p : ports) {
        p.model = std::make_shared<StreamDataModel>();
        p.controller = std::make_shared<StreamDataController>(p.model);
        QVERIFY(p.controller->startStream(0, 0));
        Port* self = &p;
        connect(p.model.get(), &StreamDataModel::newLine, this, [self](LineType line) {
            ++self->delivered;
            if (line->parser->datatyp() != self->datatyp ||
                line->parser->colCount() != self->columns ||
                line->points.size() != std::size_t(line->pixel))
                self->layoutsMatch = false;
        });
        sims.push_back(std::make_unique<QProcess>());
        QStringList args = p.args;
        args << "--port" << QString::number(p.controller->localPort()) << "--count"
             << QString::number(kLines) << "--rate"
             << "1500";
        sims.back()->start(QStringLiteral(VX_SIM_PATH), args);
    }
    // The event loop runs while the simulators send, so lines are taken in
    // as they come.
    for (auto& sim : sims) {
        QVERIFY(runUntil([&] { return sim->state() == QProcess::NotRunning; }, 30000));
        QCOMPARE(sim->exitCode(), 0);
    }
    for (Port& p : ports) {
        // Loopback may drop datagrams under load; whatever arrives is either
        // delivered or counted as skipped.
        QVERIFY(runUntil(
            [&] {
                return p.controller->frames() > 0 &&
                       p.controller->frames() == p.delivered + p.controller->skippedLines();
            },
            10000));
        qInfo("port %d: %u frames, %d delivered, %llu skipped", p.controller->localPort(),
              p.controller->frames(), p.delivered,
              static_cast<unsigned long long>(p.controller->skippedLines()));
        QVERIFY(p.layoutsMatch);
        QVERIFY(p.delivered > 0);
        QCOMPARE(p.controller->counters().callbackErrors, uint64_t(0));
    }
    // Stop the receive threads before the models go away.
    for (Port& p : ports)
        p.controller.reset();
}

QTEST_GUILESS_MAIN(TestMultiPort)
#include "tst_multiport.moc"
