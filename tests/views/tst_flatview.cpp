#include "views/flatview.h"
#include "viewtestsupport.h"

#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QScrollArea>
#include <QSignalSpy>

using namespace vxlindral;
using viewtest::makeLine;
using viewtest::pt;

namespace {

// The gray view's drawing as it was done with QPainter on a pixmap: scroll
// the whole pixmap, then draw each point with a 2-pixel pen. This defines
// the expected pixels.
struct PainterReference
{
    QPixmap pixmap;

    void add(FlatView& view, const LineType& line)
    {
        const int w = pixmap.width();
        const int h = pixmap.height();
        const int mode = view.getDisplayMode();
        const int direction = view.getDirection();
        pixmap.scroll(mode == 1 ? -1 : 0, mode == 0 ? -2 : 0,
                      QRect(QPoint(0, 0), QPoint(w - 1, h - 1)));
        if (!line || (mode == 1 && (w < 11 || h < 11)))
            return;
        int minI = 65535;
        int maxI = 0;
        view.calculateRanges(line.get(), minI, maxI);
        const double r = (maxI - minI) / 210.0;
        QPainter painter(&pixmap);
        const int n = line->pixel;
        auto draw = [&](int i, int x, int y) {
            const vxs::VxPt& p = line->points.at(std::size_t(i));
            const int g = FlatView::grayValue(p.intensity, minI, r);
            const QColor reject = view.isFilteredDisplayed() ? QColor(255, 122, 0) : Qt::black;
            painter.setPen(QPen(p.reject ? reject : QColor(g, g, g), 2));
            painter.drawPoint(x, y);
        };
        if (mode == 0) {
            const double step = std::max(1.0, double(n) / w);
            for (int x = 0; x < w; x += 2) {
                const int i = int(x * step);
                if (i < n && line->points.at(std::size_t(i)).valid)
                    draw(i, direction < 0 ? w - x : x, h - 1);
            }
            return;
        }
        const double step = std::max(1.0, double(n) / h);
        const int half = h / 2;
        for (int k = 0; k < half; ++k) {
            const int i = int(k * step);
            if (i < n) {
                if (!line->points.at(std::size_t(i)).valid)
                    continue;
                draw(i, w - 1, half - direction * k);
            }
            const int j = int((k + half) * step);
            if (j < n && line->points.at(std::size_t(j)).valid)
                draw(j, w - 1, direction * k + half);
        }
    }
};

// n points, intensities spread over 0 .. 3999 with a seed; every `invalid`th
// point invalid and every `reject`th rejected (0: none).
LineType grayLine(int n, int seed, int invalid, int reject)
{
    std::vector<vxs::VxPt> pts;
    for (int i = 0; i < n; ++i)
        pts.push_back(pt(0, 0, uint32_t((i * seed * 37 + seed * 101) % 4000),
                         invalid == 0 || i % invalid != 3, reject && i % reject == 1 ? 5 : 0));
    return makeLine(pts);
}

QImage rgb(const QPixmap& p)
{
    return p.toImage().convertToFormat(QImage::Format_RGB32);
}

} // namespace

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

    // The picture equals the painter reference after every line when a frame
    // follows each line, and after a burst of lines when the label is painted
    // before any frame (the paint brings it up to date). In column mode a side
    // below 11 pixels only scrolls.
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
        view.reset();
        FlatView stepwise;
        FlatView burst;
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
        PainterReference ref{stepwise.image()};
        QCOMPARE(ref.pixmap.width(), area.width() - 2);
        QCOMPARE(burst.image().size(), ref.pixmap.size());
        // More and fewer points than pixels, invalid and rejected points,
        // equal intensities (the full range), no points, no line at all.
        const LineType lines[] = {grayLine(400, 3, 7, 5),
                                  grayLine(9, 5, 0, 0),
                                  grayLine(1000, 7, 4, 0),
                                  makeLine({}),
                                  LineType(),
                                  grayLine(300, 1, 0, 3),
                                  grayLine(50, 0, 0, 0),
                                  grayLine(2048, 11, 9, 13)};
        for (const LineType& line : lines) {
            ref.add(stepwise, line);
            stepwise.updateNewLine(line);
            burst.updateNewLine(line);
            QCOMPARE(rgb(stepwise.image()), rgb(ref.pixmap));
        }
        QCOMPARE(rgb(burst.findChild<QLabel*>()->grab()), rgb(ref.pixmap));
        QCOMPARE(rgb(burst.image()), rgb(ref.pixmap));
    }
};

VIEW_TEST_MAIN(TstFlatView, true)
#include "tst_flatview.moc"
