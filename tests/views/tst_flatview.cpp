#include "views/flatview.h"
#include "viewtestsupport.h"

#include <QImage>
#include <QSignalSpy>

using namespace vxlindral;
using viewtest::makeLine;
using viewtest::pt;

class TstFlatView : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<FlatView> view;
    int w = 0;
    int h = 0;

    QImage snapshot() const
    {
        return view->image().toImage().convertToFormat(QImage::Format_RGB32);
    }

private slots:
    void init()
    {
        view = std::make_unique<FlatView>();
        view->resize(240, 200);
        view->show();
        // The first resize sizes the image to the viewport before the layout
        // ran; the next one follows the laid-out scroll area.
        QCoreApplication::processEvents();
        view->resize(241, 201);
        w = view->image().width();
        h = view->image().height();
        QVERIFY2(h > 80 && w > h, qPrintable(QStringLiteral("%1x%2").arg(w).arg(h)));
    }
    void cleanup() { view.reset(); }

    // With r = (max - min) / 210 min maps to 45 and max to 255 (see the
    // drawing test); the unsigned difference wraps, so a value below the
    // range is white like one above it.
    void outOfRangeIsWhite()
    {
        QCOMPARE(FlatView::grayValue(400, 100, 1.0), 255);
        QCOMPARE(FlatView::grayValue(99, 100, 1.0), 255);
    }

    // Column mode (the initial one): the line is the rightmost column, the
    // first half of the points from the middle upward, the second half from
    // the middle downward; each line scrolls left by 1. An invalid point of
    // the first half also drops its partner of the second half. Waterfall:
    // the line is the bottom row, point i at x = i for even x, no coupling;
    // each line scrolls up by 2. A flip mirrors either. Toggling the mode
    // clears the image.
    void drawScrollAndToggle_data()
    {
        QTest::addColumn<bool>("waterfall");
        QTest::addColumn<bool>("flip");
        QTest::newRow("column") << false << false;
        QTest::newRow("column flipped") << false << true;
        QTest::newRow("waterfall") << true << false;
        QTest::newRow("waterfall flipped") << true << true;
    }
    void drawScrollAndToggle()
    {
        QFETCH(bool, waterfall);
        QFETCH(bool, flip);
        if (waterfall)
            view->handleDisplayMode();
        if (flip)
            view->handleMirrow();
        // One point per pixel row: the first half at 100 (gray 45), the second
        // at 205 (gray 150), points 20 .. 30 invalid; one 310 at the end sets
        // the range to 100 .. 310.
        const int half = h / 2;
        std::vector<vxs::VxPt> pts;
        for (int i = 0; i < h; ++i)
            pts.push_back(pt(0, 0, i == h - 1 ? 310 : i < half ? 100 : 205, i < 20 || i > 30));
        QSignalSpy spy(view.get(), &FlatView::signalNewImage);
        view->updateNewLine(makeLine(pts));
        QCOMPARE(spy.count(), 1);
        const QImage img = snapshot();
        const auto grayOf = [&](int i) { // gray where point i lands
            const int k = i < half ? i : i - half;
            const bool up = (i < half) != flip;
            return qGray(waterfall ? img.pixel(flip ? w - i : i, h - 1)
                                   : img.pixel(w - 1, up ? half - k : half + k));
        };
        QCOMPARE(grayOf(10), 45);
        QCOMPARE(grayOf(24), 255);
        QCOMPARE(grayOf((half + 24) & ~1), waterfall ? 150 : 255);
        QCOMPARE(grayOf((h - 10) & ~1), 150);

        // A line without points only scrolls.
        view->updateNewLine(makeLine({}));
        const QRect drawn = waterfall ? QRect(0, h - 1, w, 1) : QRect(w - 1, 0, 1, h);
        const QPoint shift = waterfall ? QPoint(0, -2) : QPoint(-1, 0);
        QCOMPARE(snapshot().copy(drawn.translated(shift)), img.copy(drawn));

        view->handleDisplayMode();
        QCOMPARE(view->getDisplayMode(), waterfall ? 1 : 0);
        QImage white(img.size(), img.format());
        white.fill(Qt::white);
        QCOMPARE(snapshot(), white);
    }
};

VIEW_TEST_MAIN(TstFlatView, true)
#include "tst_flatview.moc"
