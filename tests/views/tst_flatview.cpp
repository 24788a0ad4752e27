#include "views/flatview.h"
#include "viewtestsupport.h"

#include <QImage>
#include <QSignalSpy>

using namespace vxlindral;
using viewtest::makeIntensityLine;
using viewtest::makeLine;
using viewtest::Pt;

namespace {

QImage snapshot(const FlatView& view)
{
    return view.image().toImage().convertToFormat(QImage::Format_RGB32);
}

int grayAt(const QImage& img, int x, int y)
{
    return qGray(img.pixel(x, y));
}

// Intensities 100/310 alternate in pairs: calculateRanges gives 100 .. 310,
// so r = 1, 100 maps to 45 and 310 to 255.
std::vector<uint32_t> pairs(int n)
{
    std::vector<uint32_t> v;
    for (int i = 0; i < n; ++i)
        v.push_back((i / 2) % 2 ? 310 : 100);
    return v;
}

} // namespace

class TstFlatView : public QObject
{
    Q_OBJECT
private:
    std::unique_ptr<FlatView> view;

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
        QVERIFY(!view->image().isNull());
        QVERIFY(view->image().width() >= 11 && view->image().height() >= 11);
    }
    void cleanup() { view.reset(); }

    void grayValue_data()
    {
        QTest::addColumn<uint>("v");
        QTest::addColumn<int>("minI");
        QTest::addColumn<int>("maxI");
        QTest::addColumn<int>("gray");
        QTest::newRow("min is 45") << 100u << 100 << 310 << 45;
        QTest::newRow("max is 255") << 310u << 100 << 310 << 255;
        QTest::newRow("middle") << 205u << 100 << 310 << 150;
        QTest::newRow("above max is white") << 400u << 100 << 310 << 255;
        // The unsigned difference wraps: below the range is white too.
        QTest::newRow("below min is white") << 99u << 100 << 310 << 255;
        // The fallback range 0 .. 65535: r = 312.07.
        QTest::newRow("full range, 0") << 0u << 0 << 65535 << 45;
        QTest::newRow("full range, 1000") << 1000u << 0 << 65535 << 48;
    }
    void grayValue()
    {
        QFETCH(uint, v);
        QFETCH(int, minI);
        QFETCH(int, maxI);
        QTEST(FlatView::grayValue(v, minI, (maxI - minI) / 210.0), "gray");
    }

    // Right to left (the initial mode): the line is the rightmost column,
    // the first half of the points from the middle upward, the second half
    // from the middle downward; a flip swaps them. Each line scrolls by 1.
    void columnModeDrawsAndScrolls_data()
    {
        QTest::addColumn<bool>("flip");
        QTest::newRow("plain") << false;
        QTest::newRow("flipped") << true;
    }
    void columnModeDrawsAndScrolls()
    {
        QFETCH(bool, flip);
        QCOMPARE(view->getDisplayMode(), 1);
        if (flip)
            view->handleMirrow();
        const QImage before = snapshot(*view);
        const int w = before.width();
        const int h = before.height();
        const int half = h / 2;
        // Dark first half, bright second half (one point per pixel row).
        std::vector<uint32_t> values(static_cast<std::size_t>(h), 310);
        for (int i = 0; i < half; ++i)
            values[static_cast<std::size_t>(i)] = 100;
        view->updateNewLine(makeIntensityLine(values));
        QImage img = snapshot(*view);
        const int up = half - 5, down = half + 5;
        QCOMPARE(grayAt(img, w - 1, flip ? down : up), 45);
        QCOMPARE(grayAt(img, w - 1, flip ? up : down), 255);

        // A line without points only scrolls: the column moves left by 1.
        view->updateNewLine(makeLine({}));
        const QImage next = snapshot(*view);
        for (int y = 0; y < h; ++y)
            QCOMPARE(next.pixel(w - 2, y), img.pixel(w - 1, y));
    }

    // Waterfall: the line is the bottom row at every second x; each line
    // scrolls the image up by 2; a flip mirrors the row.
    void waterfallDrawsAndScrolls_data()
    {
        QTest::addColumn<bool>("flip");
        QTest::newRow("plain") << false;
        QTest::newRow("flipped") << true;
    }
    void waterfallDrawsAndScrolls()
    {
        QFETCH(bool, flip);
        view->handleDisplayMode();
        QCOMPARE(view->getDisplayMode(), 0);
        if (flip)
            view->handleMirrow();
        const int w = view->image().width();
        const int h = view->image().height();
        // 8 points, step 1: points 0, 2, 4, 6 at x = 0, 2, 4, 6 (or w - x);
        // points 0 and 4 are dark.
        view->updateNewLine(makeIntensityLine(pairs(8)));
        const QImage img = snapshot(*view);
        const int x4 = flip ? w - 4 : 4;
        QCOMPARE(grayAt(img, x4, h - 1), 45);
        QCOMPARE(grayAt(img, flip ? 4 : w - 4, h - 1), 255);
        view->updateNewLine(makeLine({}));
        const QImage next = snapshot(*view);
        for (int x = 0; x < w; ++x)
            QCOMPARE(next.pixel(x, h - 3), img.pixel(x, h - 1));
    }

    // An invalid point of the first half also drops its partner in the
    // second half, although the partner itself is valid.
    void invalidPointSkipsItsPartner()
    {
        const int h = view->image().height();
        const int w = view->image().width();
        const int half = h / 2;
        QVERIFY2(half > 40, qPrintable(QStringLiteral("%1x%2").arg(w).arg(h)));
        // First half bright (drawn white), second half dark.
        std::vector<Pt> pts(static_cast<std::size_t>(h));
        for (int i = 0; i < h; ++i)
            pts[static_cast<std::size_t>(i)] = {0.0, 0.0, i < half ? 310u : 100u, 1, 0};
        for (int k = 10; k <= 20; ++k)
            pts[static_cast<std::size_t>(k)].valid = 0;
        view->updateNewLine(makeLine(pts));
        const QImage img = snapshot(*view);
        QCOMPARE(grayAt(img, w - 1, half + 30), 45);
        QCOMPARE(grayAt(img, w - 1, half + 15), 255);
    }

    void modeToggleClearsAndRenames()
    {
        view->updateNewLine(makeIntensityLine(pairs(64)));
        view->handleDisplayMode();
        const QImage img = snapshot(*view);
        QCOMPARE(img.pixel(img.width() - 1, img.height() / 2), qRgb(255, 255, 255));
        QCOMPARE(view->getDisplayMode(), 0);
        view->handleDisplayMode();
        QCOMPARE(view->getDisplayMode(), 1);
    }

    void newImageReachesLabelQueued()
    {
        QSignalSpy spy(view.get(), &FlatView::signalNewImage);
        view->updateNewLine(makeIntensityLine(pairs(16)));
        QCOMPARE(spy.count(), 1);
    }
};

VIEW_TEST_MAIN(TstFlatView, true)
#include "tst_flatview.moc"
