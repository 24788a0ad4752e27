#include "views/statisticview.h"
#include "viewtestsupport.h"

#include <QLabel>
#include <QSignalSpy>
#include <stdexcept>

using namespace vxlindral;

class TstBasicView : public QObject
{
    Q_OBJECT
private slots:
    // The range is the observed one (widened by the starting range), clipped
    // to the band mean - 2s .. mean + 3s (sample variance, n - 1) and
    // truncated toward zero; min == max falls back to the full 16-bit range.
    void calculateRanges_data()
    {
        using U = QVector<uint>;
        using I = QVector<int>;
        QTest::addColumn<U>("values");
        QTest::addColumn<I>("range"); // start min, max; expected min, max
        QTest::newRow("start widens") << U{100, 100, 310, 310} << I{50, 0, 50, 310};
        // 10 x 0 and one 1000: mean 90.909, s 301.511, upper 995.44.
        QTest::newRow("outlier clipped above") << (U(10, 0) << 1000) << I{65535, 0, 0, 995};
        // 10 x 1000 and one 0: mean 909.09, s 301.51, lower 306.07.
        QTest::newRow("outlier clipped below") << (U(10, 1000) << 0) << I{65535, 0, 306, 1000};
        QTest::newRow("all equal") << U{500, 500, 500} << I{65535, 0, 0, 65535};
        // One point: the band is 0 .. 0, so the positive maximum becomes 0.
        QTest::newRow("single point") << U{700} << I{65535, 0, 700, 0};
        // No points: a negative minimum and a positive maximum become 0, and
        // 0 == 0 falls back to the full range; the usual start stays as it is.
        QTest::newRow("empty, degenerate") << U{} << I{-5, 9, 0, 65535};
        QTest::newRow("empty, untouched") << U{} << I{65535, 0, 65535, 0};
    }
    void calculateRanges()
    {
        QFETCH(QVector<uint>, values);
        QFETCH(QVector<int>, range);
        StatisticView view;
        std::vector<vxs::VxPt> pts;
        for (uint v : values)
            pts.push_back(viewtest::pt(0, 0, v));
        const LineType line = viewtest::makeLine(pts);
        int minI = range[0], maxI = range[1];
        view.calculateRanges(line.get(), minI, maxI);
        QCOMPARE(QVector<int>({minI, maxI}), range.mid(2));
        // A point count beyond the point array is refused, not read past.
        line->pixel = values.size() + 1;
        QVERIFY_EXCEPTION_THROWN(view.calculateRanges(line.get(), minI, maxI), std::out_of_range);
    }

    // The info view shows the newest text in a label of that text's size:
    // after every text when a frame follows each, and after a burst once the
    // label paints; without a paint, the next frame shows it.
    void infoViewShowsNewestText_data()
    {
        QTest::addColumn<QStringList>("texts");
        QTest::newRow("markup, then plain") << QStringList{
            "<table><tr><td>ip</td><td>10.0.0.2</td></tr></table>", "unknown data\n"};
        QTest::newRow("emptied") << QStringList{"a much longer line of text", ""};
        QTest::newRow("never a text") << QStringList{"", ""};
    }
    void infoViewShowsNewestText()
    {
        QFETCH(QStringList, texts);
        StatisticView stepwise, burst;
        QLabel reference; // set and sized per text
        for (StatisticView* v : {&stepwise, &burst})
            v->show();
        for (const QString& t : texts) {
            stepwise.updateStatistic(t);
            burst.updateStatistic(t);
            reference.setText(t);
            reference.adjustSize();
            QCOMPARE(stepwise.text(), t);
            QCOMPARE(stepwise.findChild<QLabel*>()->size(), reference.size());
        }
        QLabel* label = burst.findChild<QLabel*>();
        burst.grab();
        QCOMPARE(label->text(), texts.last());
        QCOMPARE(label->size(), reference.size());
        burst.updateStatistic(QStringLiteral("next"));
        QCOMPARE(label->text(), texts.last());
        QTRY_COMPARE(label->text(), QStringLiteral("next"));
    }

    // The title names the port; closing reports the object name once.
    void titleAndClose()
    {
        auto* view = new StatisticView; // deletes itself when closed
        view->setObjectName(QStringLiteral("6101_info"));
        view->setPort(6101);
        QCOMPARE(view->windowTitle(), QStringLiteral("Info : Port 6101"));
        QSignalSpy closed(view, &BasicView::closed);
        QVERIFY(view->close());
        QCOMPARE(closed, QList<QVariantList>{{QStringLiteral("6101_info")}});
    }
};

VIEW_TEST_MAIN(TstBasicView, true)
#include "tst_basicview.moc"
