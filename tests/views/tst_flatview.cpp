#include "views/flatview.h"
#include "viewtestsupport.h"

#include <QImage>
#include <QSignalSpy>
#include <algorithm>

using namespace vxlindral;
using viewtest::makeIntensityLine;
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
    int grayAt(int x, int y) const { return qGray(snapshot().pixel(x, y)); }

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
    // the middle downward; each line scrolls left by 1. Waterfall: the line
    // is the bottom row, point i at x = i for even x; each line scrolls up
    // by 2. A flip mirrors either. Toggling the mode clears the image.
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
        // at 205 (gray 150); one 310 at the end sets the range to 100 .. 310.
        const int half = h / 2;
        std::vector<uint32_t> values(static_cast<std::size_t>(h), 205);
        std::fill_n(values.begin(), half, 100u);
        values.back() = 310;
        QSignalSpy spy(view.get(), &FlatView::signalNewImage);
        view->updateNewLine(makeIntensityLine(values));
        QCOMPARE(spy.count(), 1);
        const int dark = 10, mid = (h - 10) & ~1;
        const QImage img = snapshot();
        if (waterfall) {
            QCOMPARE(qGray(img.pixel(flip ? w - dark : dark, h - 1)), 45);
            QCOMPARE(qGray(img.pixel(flip ? w - mid : mid, h - 1)), 150);
        } else {
            QCOMPARE(qGray(img.pixel(w - 1, flip ? half + dark : half - dark)), 45);
            QCOMPARE(qGray(img.pixel(w - 1, flip ? 2 * half - mid : mid)), 150);
        }

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

    // An invalid point of the first half also drops its partner in the
    // second half, although the partner itself is valid.
    void invalidPointSkipsItsPartner()
    {
        const int half = h / 2;
        // First half bright (drawn white), second half dark.
        std::vector<vxs::VxPt> pts;
        for (int i = 0; i < h; ++i)
            pts.push_back(pt(0, 0, i < half ? 310 : 100, i < 10 || i > 20));
        view->updateNewLine(makeLine(pts));
        QCOMPARE(grayAt(w - 1, half + 30), 45);
        QCOMPARE(grayAt(w - 1, half + 15), 255);
    }
};

VIEW_TEST_MAIN(TstFlatView, true)
#include "tst_flatview.moc"
