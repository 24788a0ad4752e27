#include "views/statisticview.h"
#include "viewtestsupport.h"

#include <QLabel>
#include <QSignalSpy>
#include <stdexcept>

using namespace vxlindral;
using viewtest::makeIntensityLine;

class TstBasicView : public QObject
{
    Q_OBJECT
private slots:
    void calculateRanges_data()
    {
        QTest::addColumn<QVector<uint>>("values");
        QTest::addColumn<int>("startMin");
        QTest::addColumn<int>("startMax");
        QTest::addColumn<int>("expectMin");
        QTest::addColumn<int>("expectMax");
        // Observed extremes inside the band win.
        QTest::newRow("two values")
            << QVector<uint>{100, 100, 310, 310} << 65535 << 0 << 100 << 310;
        // The band is mean - 2s .. mean + 3s (sample variance, n - 1): one
        // outlier above is clipped to mean + 3s, truncated toward zero.
        // Values 10 x 0 and one 1000: mean 90.909, s 301.511, upper 995.44.
        QTest::newRow("outlier clipped above")
            << (QVector<uint>(10, 0) << 1000) << 65535 << 0 << 0 << 995;
        // An outlier below is clipped to mean - 2s: values 10 x 1000 and one 0
        // give mean 909.09, s 301.51, lower 306.07.
        QTest::newRow("outlier clipped below")
            << (QVector<uint>(10, 1000) << 0) << 65535 << 0 << 306 << 1000;
        // All equal: s = 0, min == max, so the full 16-bit range.
        QTest::newRow("all equal") << QVector<uint>{500, 500, 500} << 65535 << 0 << 0 << 65535;
        // A single point: the band is 0 .. 0, the positive maximum becomes 0.
        QTest::newRow("single point") << QVector<uint>{700} << 65535 << 0 << 700 << 0;
        // No points: a negative start minimum becomes 0, a positive maximum
        // becomes 0, and 0 == 0 falls back to the full range.
        QTest::newRow("empty, degenerate") << QVector<uint>{} << -5 << 9 << 0 << 65535;
        QTest::newRow("empty, untouched") << QVector<uint>{} << 65535 << 0 << 65535 << 0;
        // The starting range widens the observed one before clipping.
        QTest::newRow("start widens") << QVector<uint>{100, 100, 310, 310} << 50 << 0 << 50 << 310;
    }
    void calculateRanges()
    {
        QFETCH(QVector<uint>, values);
        QFETCH(int, startMin);
        QFETCH(int, startMax);
        StatisticView view;
        auto line = makeIntensityLine(std::vector<uint32_t>(values.begin(), values.end()));
        view.calculateRanges(line.get(), startMin, startMax);
        QTEST(startMin, "expectMin");
        QTEST(startMax, "expectMax");
        // A point count beyond the point array is refused, not read past.
        line->pixel = values.size() + 1;
        QVERIFY_EXCEPTION_THROWN(view.calculateRanges(line.get(), startMin, startMax),
                                 std::out_of_range);
    }

    // The info view shows the newest text in a label of that text's size:
    // after every text when a frame follows each, and after a burst once the
    // label paints.
    void infoViewShowsNewestText_data()
    {
        QTest::addColumn<QStringList>("texts");
        QTest::newRow("growing") << QStringList{"frame 9\npixel 2048\n", "frame 10\npixel 2048\n"};
        QTest::newRow("markup, then plain") << QStringList{
            "<table><tr><td>ip</td><td>10.0.0.2</td></tr></table>", "unknown data\n"};
        QTest::newRow("emptied") << QStringList{"a much longer line of text", ""};
        QTest::newRow("never a text") << QStringList{"", ""};
    }
    void infoViewShowsNewestText()
    {
        QFETCH(QStringList, texts);
        StatisticView stepwise;
        StatisticView burst;
        QWidget holder;
        QLabel reference(&holder); // set and sized per text
        for (StatisticView* v : {&stepwise, &burst}) {
            v->resize(300, 200);
            v->show();
        }
        QLabel* label = burst.findChild<QLabel*>();
        for (const QString& t : texts) {
            stepwise.updateStatistic(t);
            burst.updateStatistic(t);
            reference.setText(t);
            reference.adjustSize();
            QCOMPARE(stepwise.text(), t);
            QCOMPARE(stepwise.findChild<QLabel*>()->size(), reference.size());
        }
        burst.grab();
        QCOMPARE(label->text(), texts.last());
        QCOMPARE(label->size(), reference.size());
        // Without a paint or an accessor, the next frame shows it.
        burst.updateStatistic(QStringLiteral("next"));
        QCOMPARE(label->text(), texts.last());
        QTRY_COMPARE(label->text(), QStringLiteral("next"));
    }

    // The info view: title with port, the latest text shown, and a close
    // that reports the object name once and destroys the view.
    void infoViewTitleTextAndClose()
    {
        auto* view = new StatisticView;
        QPointer<StatisticView> guard(view);
        view->setObjectName(QStringLiteral("6101_cut"));
        view->setWindowTitle(QStringLiteral("Cut"));
        view->setPort(6101);
        QCOMPARE(view->windowTitle(), QStringLiteral("Cut : Port 6101"));
        view->updateStatistic(QStringLiteral("<table><tr><td>a</td></tr></table>"));
        view->updateStatistic(QStringLiteral("second"));
        QCOMPARE(view->text(), QStringLiteral("second"));
        QSignalSpy spy(view, &BasicView::closed);
        view->show();
        QVERIFY(view->close());
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("6101_cut"));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(guard.isNull());
    }
};

VIEW_TEST_MAIN(TstBasicView, true)
#include "tst_basicview.moc"
