#include "views/flatview.h"
#include "viewtestsupport.h"

#include <QLabel>
#include <QPainter>
#include <QScrollArea>

using namespace vxlindral;

namespace {

// The gray view's drawing as it was done with QPainter on a pixmap: scroll
// the whole pixmap, then draw each valid point with a 2-pixel pen. Waterfall:
// the line is the bottom row, every other x showing point x * step. Columns:
// the line is the rightmost column, the first half of the points from the
// middle upward, the second half downward, and an invalid point of the first
// half also drops its partner of the second half; a side below 11 pixels only
// scrolls. A flip mirrors either. This defines the expected pixels.
void paintReference(QPixmap& pixmap, FlatView& view, const LineType& line)
{
    const int w = pixmap.width(), h = pixmap.height(), dir = view.getDirection();
    const bool waterfall = view.getDisplayMode() == 0;
    pixmap.scroll(waterfall ? 0 : -1, waterfall ? -2 : 0, pixmap.rect());
    if (!line || (!waterfall && (w < 11 || h < 11)))
        return;
    int minI = 65535, maxI = 0;
    view.calculateRanges(line.get(), minI, maxI);
    const double r = (maxI - minI) / 210.0;
    const QColor reject = view.isFilteredDisplayed() ? QColor(255, 122, 0) : Qt::black;
    QPainter painter(&pixmap);
    const int n = line->pixel;
    auto draw = [&](int i, int x, int y) { // false for an invalid point
        const vxs::VxPt& p = line->points.at(std::size_t(i));
        if (!p.valid)
            return false;
        const int g = FlatView::grayValue(p.intensity, minI, r);
        painter.setPen(QPen(p.reject ? reject : QColor(g, g, g), 2));
        painter.drawPoint(x, y);
        return true;
    };
    const double step = std::max(1.0, double(n) / (waterfall ? w : h));
    for (int k = 0, half = h / 2; !waterfall && k < half; ++k) {
        const int i = int(k * step), j = int((k + half) * step);
        if (i < n && !draw(i, w - 1, half - dir * k))
            continue;
        if (j < n)
            draw(j, w - 1, half + dir * k);
    }
    for (int x = 0; waterfall && x < w && int(x * step) < n; x += 2)
        draw(int(x * step), dir < 0 ? w - x : x, h - 1);
}

// n points, intensities spread over 0 .. 3999 with a seed; every `invalid`th
// point invalid and every `reject`th rejected (0: none).
LineType grayLine(int n, int seed, int invalid, int reject)
{
    std::vector<vxs::VxPt> pts;
    for (int i = 0; i < n; ++i)
        pts.push_back(viewtest::pt(0, 0, uint32_t((i * seed * 37 + seed * 101) % 4000),
                                   invalid == 0 || i % invalid != 3,
                                   reject && i % reject == 1 ? 5 : 0));
    return viewtest::makeLine(pts);
}

} // namespace

class TstFlatView : public QObject
{
    Q_OBJECT
private slots:
    // r = (max - min) / 210 maps min to 45 and max to 255; the unsigned
    // difference wraps, so a value below the range is white like one above.
    void grayValue()
    {
        QCOMPARE(FlatView::grayValue(100, 100, 1.0), 45);
        QCOMPARE(FlatView::grayValue(205, 100, 1.0), 150);
        QCOMPARE(FlatView::grayValue(400, 100, 1.0), 255);
        QCOMPARE(FlatView::grayValue(99, 100, 1.0), 255);
    }

    // The picture equals the painter reference after every line when a frame
    // follows each line, and after a burst of lines when the label is painted
    // before any frame (the paint brings it up to date). Toggling the mode
    // clears it.
    void matchesPainterReference_data()
    {
        QTest::addColumn<bool>("waterfall");
        QTest::addColumn<bool>("flip");
        QTest::addColumn<bool>("filtered");
        QTest::addColumn<QSize>("area"); // the scroll area's size
        QTest::newRow("column") << false << false << false << QSize(200, 120);
        QTest::newRow("column flipped filtered") << false << true << true << QSize(200, 120);
        QTest::newRow("column, width 10") << false << false << true << QSize(12, 60);
        QTest::newRow("column, height 10") << false << true << false << QSize(80, 12);
        QTest::newRow("waterfall") << true << false << false << QSize(200, 120);
        QTest::newRow("waterfall flipped filtered") << true << true << true << QSize(201, 121);
        QTest::newRow("waterfall, width 10") << true << true << false << QSize(12, 60);
        QTest::newRow("waterfall, width 3") << true << false << true << QSize(5, 5);
    }
    void matchesPainterReference()
    {
        QFETCH(bool, waterfall);
        QFETCH(bool, flip);
        QFETCH(bool, filtered);
        QFETCH(QSize, area);
        FlatView stepwise, burst;
        for (FlatView* v : {&stepwise, &burst}) {
            v->findChild<QScrollArea*>()->setFixedSize(area);
            v->show();
            QCoreApplication::processEvents();
            if (waterfall)
                v->handleDisplayMode();
            if (flip)
                v->handleMirrow();
            v->setDisplayFiltered(filtered);
            v->resize(v->width() + 1, v->height() + 1);
        }
        QPixmap reference = stepwise.image();
        QCOMPARE(reference.width(), area.width() - 2);
        // More and fewer points than pixels, invalid and rejected points,
        // equal intensities (the full range), no points, no line at all.
        for (const LineType& line :
             {grayLine(400, 3, 7, 5), grayLine(9, 5, 0, 0), grayLine(1000, 7, 4, 0),
              viewtest::makeLine({}), LineType(), grayLine(300, 1, 0, 3), grayLine(50, 0, 0, 0),
              grayLine(2048, 11, 9, 13)}) {
            paintReference(reference, stepwise, line);
            stepwise.updateNewLine(line);
            burst.updateNewLine(line);
            QCOMPARE(viewtest::rgb(stepwise.image()), viewtest::rgb(reference));
        }
        QCOMPARE(viewtest::rgb(burst.findChild<QLabel*>()->grab()), viewtest::rgb(reference));
        QCOMPARE(viewtest::rgb(burst.image()), viewtest::rgb(reference));
        burst.handleDisplayMode();
        const QImage cleared = viewtest::rgb(burst.image());
        QVERIFY(!cleared.isNull());
        QCOMPARE(viewtest::countPixels(cleared, [](QRgb c) { return c != qRgb(255, 255, 255); }),
                 0);
    }
};

VIEW_TEST_MAIN(TstFlatView, true)
#include "tst_flatview.moc"
