#include "views/cutview.h"
#include "views/drawcut.h"
#include "views/framesync.h"
#include "viewtestsupport.h"

#include <QHash>
#include <QLabel>
#include <QMouseEvent>
#include <QSignalSpy>
#include <functional>

using namespace vxlindral;
using viewtest::makeLine;
using viewtest::pt;

namespace {

const QRgb kGood = qRgb(0, 0, 200);
const QRgb kReject = qRgb(192, 0, 0);
const QRgb kWhite = qRgb(255, 255, 255);

// Drawing parameters, without grid unless asked for.
CutParams params(float scale, QPoint pan = {}, bool filtered = false, bool lines = false,
                 bool grid = false)
{
    CutParams p;
    std::tie(p.scale, p.offsetX, p.offsetY, p.displayFiltered, p.drawLines, p.grid) =
        std::make_tuple(scale, pan.x(), pan.y(), filtered, lines, grid);
    return p;
}

// The line drawn into a 200 x 100 pixmap.
QImage render(const LineType& line, const CutParams& p)
{
    QPixmap pixmap(200, 100);
    drawCut(*line, p, pixmap);
    return viewtest::rgb(pixmap);
}

int countColour(const QImage& img, QRgb c)
{
    return viewtest::countPixels(img, [c](QRgb p) { return p == c; });
}

// A profile of 80 points on an arc, shifted by `seed`; every 5th point
// rejected, every 7th invalid.
LineType profile(int seed)
{
    std::vector<vxs::VxPt> pts;
    for (int i = 0; i < 80; ++i)
        pts.push_back(pt(0.4 * (i - 40) + 0.3 * seed, 0.01 * (i - 40) * (i - 40) - 5 + seed, 1,
                         i % 7 != 3, i % 5 == 1 ? 2 : 0));
    return makeLine(pts);
}

// A drag with the left button by (7, -5).
void drag(CutView& view)
{
    QMouseEvent press(QEvent::MouseButtonPress, {60, 70}, Qt::LeftButton, Qt::LeftButton, {});
    QMouseEvent move(QEvent::MouseMove, {67, 65}, Qt::NoButton, Qt::LeftButton, {});
    QApplication::sendEvent(&view, &press);
    QApplication::sendEvent(&view, &move);
}

// Plays a script on the view: l the next line, d a drag, f the filter
// switch, z zoom in, m polyline mode, r a resize by (13, 9). With `frames`
// every step is followed by a display frame.
void play(CutView& view, const QString& script, bool frames)
{
    int next = 0;
    const QHash<QChar, std::function<void()>> steps{
        {'l', [&] { view.updateNewLine(profile(next++)); }},
        {'d', [&] { drag(view); }},
        {'f', [&] { view.setDisplayFiltered(!view.isFilteredDisplayed()); }},
        {'z', [&] { view.handleZoomIn(); }},
        {'m', [&] { view.handleDrawMode(); }},
        {'r', [&] { view.resize(view.size() + QSize(13, 9)); }}};
    for (QChar c : script) {
        steps[c]();
        if (frames)
            FrameSync::flushAll();
    }
}

} // namespace

Q_DECLARE_METATYPE(vxlindral::CutParams)

class TstCutView : public QObject
{
    Q_OBJECT
private slots:
    // Points land at round(cx - k*y + offset.x), round(cy + k*z + offset.y)
    // with k = cx / scale: both axes are negated. Rejected and invalid points
    // show in red only with the filter switch; a line without flag bit 3
    // leaves the pixmap white, grid included. The rest of the 200 x 100
    // pixmap must stay white.
    void drawing_data()
    {
        QTest::addColumn<CutParams>("params");
        QTest::addColumn<LineType>("line");
        QTest::addColumn<QPoint>("at"); // a good point's pixel
        QTest::addColumn<int>("good");
        QTest::addColumn<int>("reject");
        // k = 100/35: y 3.5 -> 10 px left, z 1.75 -> 5 px down, then the pan.
        QTest::newRow("negated axes, panned")
            << params(35, {-30, 20}) << makeLine({pt(3.5, 1.75, 1)}) << QPoint(60, 75) << 1 << 0;
        // k = 100: 0.125 m is 12.5 px, rounded half away from zero.
        QTest::newRow("half rounds away")
            << params(1) << makeLine({pt(-0.125, 0.125, 1)}) << QPoint(113, 63) << 1 << 0;
        const auto mixed = makeLine({pt(0, 0, 1), pt(3.5, 0, 1, true, 7), pt(-3.5, 0, 1, false)});
        QTest::newRow("unfiltered hides") << params(35) << mixed << QPoint(100, 50) << 1 << 0;
        QTest::newRow("filtered shows red")
            << params(35, {}, true) << mixed << QPoint(100, 50) << 1 << 2;
        QTest::newRow("flag bit 3 clear")
            << params(35, {}, true, false, true) << makeLine({pt(0, 0, 1)}, 200 & ~8) << QPoint()
            << 0 << 0;
        QTest::newRow("polyline") << params(35, {}, false, true)
                                  << makeLine({pt(3.5, 0, 1), pt(-3.5, 0, 1)}) << QPoint(95, 50)
                                  << 21 << 0;
    }
    void drawing()
    {
        QFETCH(CutParams, params);
        QFETCH(LineType, line);
        QFETCH(int, good);
        QFETCH(int, reject);
        const QImage img = render(line, params);
        QFETCH(QPoint, at);
        QCOMPARE(img.pixel(at), good > 0 ? kGood : kWhite);
        QCOMPARE(countColour(img, kGood), good);
        QCOMPARE(countColour(img, kReject), reject);
        QCOMPARE(countColour(img, kWhite), 200 * 100 - good - reject);
    }

    // Axes through the centre, grid lines the step in millimetres over the
    // scale apart (1000 / 35 = 28 px at 35 m, although the points use the real
    // half-width of 100 px); the step grows with the scale in bands, and from
    // 500 on the last one (100 m, 200 px) holds. The label sits at the top
    // left.
    void grid_data()
    {
        QTest::addColumn<float>("scale");
        QTest::addColumn<QVector<int>>("columns"); // x of the lines crossing row 25
        QTest::addColumn<QVector<int>>("rows");    // y of the lines crossing column 150
        QTest::newRow("35 m") << 35.0f << QVector<int>{16, 44, 72, 100, 128, 156, 184}
                              << QVector<int>{22, 50, 78};
        QTest::newRow("500 m") << 500.0f << QVector<int>{100} << QVector<int>{50};
    }
    void grid()
    {
        QFETCH(float, scale);
        const QImage img = render(makeLine({}), params(scale, {}, false, false, true));
        QVector<int> columns, rows;
        for (int i = 0; i < 200; ++i) {
            if (img.pixel(i, 25) != kWhite)
                columns << i;
            if (i < 100 && img.pixel(150, i) != kWhite)
                rows << i;
        }
        QTEST(columns, "columns");
        QTEST(rows, "rows");
        QVERIFY(countColour(img.copy(5, 0, 60, 11), kWhite) < 60 * 11);
    }

    // Zoom limits are tested before the step, so the scale may end one step
    // beyond them. The first line resets the zoom, later lines keep it. A
    // press reports the position over a fixed divisor 500.
    void zoomAndReadout()
    {
        CutView view;
        view.resize(301, 201);
        view.show();
        view.setScale(0.1f);
        view.handleZoomIn();
        QCOMPARE(view.params().scale, 0.1f);
        view.setScale(499.0f);
        view.handleZoomOut();
        view.handleZoomOut();
        QCOMPARE(view.params().scale, 623.75f);
        view.updateNewLine(makeLine({pt(0, 0, 1)}));
        QCOMPARE(view.params().scale, 35.0f);
        QSignalSpy status(&view, &BasicView::updateStatusBar);
        // 100 px right of the label's centre, in scroll-area coordinates.
        const QLabel* label = view.findChild<QLabel*>();
        const QRect g = label->geometry();
        const QPoint centre((g.left() + g.right()) / 2 + 100, (g.top() + g.bottom()) / 2);
        QTest::mousePress(&view, Qt::LeftButton, {},
                          label->parentWidget()->parentWidget()->mapTo(&view, centre));
        // x = 100 * 35 / 500 = 7 m; atan2(7, 0) = 90 deg, + 180 -> 270.
        QCOMPARE(status,
                 QList<QVariantList>{{QStringLiteral("u: 100 v: 0 x: 7m y: 0m a: 270deg")}});
        view.setScale(3.0f);
        view.updateNewLine(makeLine({}));
        QCOMPARE(view.params().scale, 3.0f);
    }

    // Fit zooms and pans so that the drawn points fill 70 to 90 % of the
    // width or height of the part of the picture the view shows (not the
    // part hidden below its tool bar), about centred, at one scale; rejected points count
    // only when shown. The scale stays within the limits; points on one spot
    // are only centred. Home goes back to 35 m. Ctrl+0 in the view is Fit.
    void fit_data()
    {
        QTest::addColumn<QVector<QPointF>>("points"); // y, z in metres
        QTest::addColumn<bool>("filtered");
        QTest::addColumn<float>("scale"); // 0: fills the view
        const QVector<QPointF> street{{-0.5, 0.5}, {-0.5, -8.5}, {20.5, 0.5}, {20.5, -11.5}};
        QTest::newRow("street") << street << false << 0.0f;
        QTest::newRow("belt, off centre")
            << QVector<QPointF>{{3.2, 1.0}, {4.0, 0.8}, {3.5, 1.2}} << false << 0.0f;
        QTest::newRow("one spot") << QVector<QPointF>{{2.0, -1.0}, {2.0, -1.0}} << false << 35.0f;
        QTest::newRow("below the limit")
            << QVector<QPointF>{{1.0, 1.0}, {1.0001, 1.0001}} << false << 0.1f;
        QTest::newRow("rejected far away, hidden") << street << false << 0.0f;
        QTest::newRow("rejected far away, shown") << street << true << 0.0f;
    }
    void fit()
    {
        QFETCH(QVector<QPointF>, points);
        QFETCH(bool, filtered);
        QFETCH(float, scale);
        std::vector<vxs::VxPt> pts;
        for (const QPointF& p : points)
            pts.push_back(pt(p.x(), p.y(), 1));
        const bool rejected = QByteArray(QTest::currentDataTag()).startsWith("rejected");
        if (rejected)
            pts.push_back(pt(-60.0, -40.0, 1, true, 2));
        CutView view;
        view.resize(301, 201);
        view.show();
        view.setDisplayFiltered(filtered);
        view.updateNewLine(makeLine(pts));
        // Ctrl+0 while the focus is inside the view.
        view.activateWindow();
        view.setFocus();
        QTRY_VERIFY(view.hasFocus());
        QTest::keyClick(&view, Qt::Key_0, Qt::ControlModifier);
        // What the view shows of its picture: the points lie there.
        const QImage whole = viewtest::rgb(view.image());
        const QImage img = whole.copy(view.visibleRect());
        QVERIFY(img.height() < whole.height() - 20); // the tool bar hides part of it
        QCOMPARE(countColour(img, kGood), countColour(whole, kGood));
        QRect drawn;
        for (int y = 0; y < img.height(); ++y)
            for (int x = 0; x < img.width(); ++x)
                if (img.pixel(x, y) == kGood || img.pixel(x, y) == kReject)
                    drawn |= QRect(x, y, 1, 1);
        QVERIFY(!drawn.isEmpty());
        QVERIFY2(qAbs(drawn.center().x() - img.width() / 2) <= img.width() / 20 &&
                     qAbs(drawn.center().y() - img.height() / 2) <= img.height() / 20,
                 qPrintable(QStringLiteral("%1,%2 in %3x%4")
                                .arg(drawn.center().x())
                                .arg(drawn.center().y())
                                .arg(img.width())
                                .arg(img.height())));
        if (scale > 0) {
            QCOMPARE(view.params().scale, scale);
        } else {
            QVERIFY(drawn.width() <= 0.9 * img.width() + 2 &&
                    drawn.height() <= 0.9 * img.height() + 2);
            QVERIFY(drawn.width() >= 0.7 * img.width() || drawn.height() >= 0.7 * img.height());
        }
        QCOMPARE(view.framingMode(), ViewFraming::Fit);
        QCOMPARE(countColour(img, kReject) > 0, rejected && filtered);
        view.handleZoomHome();
        QCOMPARE(view.framingMode(), ViewFraming::Home);
        if (QByteArray(QTest::currentDataTag()) == "street") {
            // Framed at home: Home keeps 35 m and no pan.
            view.image();
            QCOMPARE(view.params().scale, 35.0f);
            QCOMPARE(view.panOffset(), QPoint());
        }
    }

    // Until the user zooms or pans, the view frames the profile: at home
    // while it is inside the picture there and spans a tenth of it, else
    // fitted. Zooming or panning takes the framing over from what the view
    // shows, and the view keeps the user's zoom and pan whatever arrives;
    // Home and Fit hand the framing back.
    void framingIsTheUsers_data()
    {
        QTest::addColumn<QString>("action");
        for (const char* a : {"zoom in", "zoom out", "wheel", "drag", "double-click"})
            QTest::newRow(a) << QString::fromLatin1(a);
    }
    void framingIsTheUsers()
    {
        QFETCH(QString, action);
        CutView view;
        view.resize(301, 201);
        view.show();
        // A belt half a metre wide, far from the scanner: a dot at home.
        const auto belt = [](double y, double z) {
            std::vector<vxs::VxPt> pts;
            for (int i = 0; i < 50; ++i)
                pts.push_back(pt(y + 0.01 * i, z + 0.0001 * (i % 3), 1));
            return makeLine(pts);
        };
        view.updateNewLine(belt(40.0, -3.0));
        view.image();
        QCOMPARE(view.framingMode(), ViewFraming::Home);
        const float fitted = view.params().scale;
        QVERIFY2(fitted < 1.0f, qPrintable(QString::number(fitted)));
        const QPoint fittedPan = view.panOffset();
        if (action == "zoom in") {
            view.handleZoomIn();
        } else if (action == "zoom out") {
            view.handleZoomOut();
        } else if (action == "wheel") {
            QWheelEvent wheel(QPointF(50, 50), QPointF(50, 50), {}, QPoint(0, 120), Qt::NoButton,
                              {}, Qt::NoScrollPhase, false);
            QApplication::sendEvent(&view, &wheel);
        } else if (action == "drag") {
            drag(view);
        } else {
            QMouseEvent click(QEvent::MouseButtonDblClick, {60, 70}, Qt::LeftButton,
                              Qt::LeftButton, {});
            QApplication::sendEvent(&view, &click);
        }
        QCOMPARE(view.framingMode(), ViewFraming::User);
        // Taken over from the fit, not from home.
        QVERIFY(view.params().scale < 1.0f);
        const float scale = view.params().scale;
        const QPoint pan = view.panOffset();
        if (action.startsWith("zoom") || action == "wheel")
            QVERIFY(scale != fitted);
        else
            QVERIFY(pan != fittedPan);
        // Far away and out of the picture: the user's framing stays.
        view.updateNewLine(belt(-80.0, 20.0));
        view.image();
        QCOMPARE(view.params().scale, scale);
        QCOMPARE(view.panOffset(), pan);
        QCOMPARE(countColour(viewtest::rgb(view.image()), kGood), 0);
        // Home hands the framing back: the dot is fitted again.
        view.handleZoomHome();
        QCOMPARE(view.framingMode(), ViewFraming::Home);
        QVERIFY(countColour(viewtest::rgb(view.image()), kGood) > 20);
        QVERIFY(view.params().scale < 1.0f);
        view.handleZoomIn();
        QCOMPARE(view.framingMode(), ViewFraming::User);
        view.handleFit();
        QCOMPARE(view.framingMode(), ViewFraming::Fit);
        view.image();
        QCOMPARE(view.params().scale, fitted);
    }

    // Framing the profile by itself, the view keeps its zoom and pan while
    // the profile lies inside the picture and spans a tenth of its width or
    // height, and fits again when the profile leaves the picture or shrinks
    // below a tenth. It decides once per frame, on the line the frame draws:
    // lines taken in between two frames decide nothing.
    void keepsItsFrame_data()
    {
        QTest::addColumn<QVector3D>("between"); // y of the left end, z, width; width 0: none
        QTest::addColumn<QVector3D>("next");
        QTest::addColumn<bool>("refits");
        const QVector3D none;
        QTest::newRow("moved a little") << none << QVector3D(40.03f, -3.0f, 0.49f) << false;
        QTest::newRow("narrower, above a tenth") << none << QVector3D(40.2f, -3.0f, 0.1f) << false;
        QTest::newRow("wider, still inside") << none << QVector3D(39.995f, -3.0f, 0.51f) << false;
        QTest::newRow("shrunk below a tenth") << none << QVector3D(40.2f, -3.0f, 0.02f) << true;
        QTest::newRow("left at the side") << none << QVector3D(40.4f, -3.0f, 0.49f) << true;
        QTest::newRow("risen out of the picture") << none << QVector3D(40.0f, -2.7f, 0.49f) << true;
        QTest::newRow("away and back between two frames")
            << QVector3D(-80.0f, 20.0f, 0.49f) << QVector3D(40.03f, -3.0f, 0.49f) << false;
        QTest::newRow("back between two frames, then away")
            << QVector3D(40.03f, -3.0f, 0.49f) << QVector3D(-80.0f, 20.0f, 0.49f) << true;
    }
    void keepsItsFrame()
    {
        QFETCH(QVector3D, between);
        QFETCH(QVector3D, next);
        QFETCH(bool, refits);
        CutView view;
        view.resize(301, 201);
        view.show();
        // 50 points from y over the width, at z (give or take 0.2 mm).
        const auto belt = [](const QVector3D& b) {
            std::vector<vxs::VxPt> pts;
            for (int i = 0; i < 50; ++i)
                pts.push_back(pt(b.x() + b.z() * i / 49.0, b.y() + 0.0001 * (i % 3), 1));
            return makeLine(pts);
        };
        // Far from the scanner, a dot at home: fitted.
        view.updateNewLine(belt(QVector3D(40.0f, -3.0f, 0.49f)));
        view.image();
        const float scale = view.params().scale;
        const QPoint pan = view.panOffset();
        QVERIFY(scale < 1.0f);
        if (between.z() > 0.0f)
            view.updateNewLine(belt(between));
        view.updateNewLine(belt(next));
        const QImage img = viewtest::rgb(view.image());
        QCOMPARE(view.params().scale != scale || view.panOffset() != pan, refits);
        QCOMPARE(view.framingMode(), ViewFraming::Home);
        QVERIFY(countColour(img, kGood) > 20);
    }

    // The newest line is drawn once per frame with the parameters of its
    // arrival: a script played in one burst shows, at the label's next paint,
    // what it shows with a frame after every step. Changes after the last
    // line (drag, filter, polyline) wait for the next line; zoom redraws; a
    // resize leaves the label on the last picture and the pixmap at the new
    // size.
    void framedDrawingMatchesPerLine_data()
    {
        QTest::addColumn<QString>("script");
        QTest::newRow("drag after the last line") << "lldld";
        QTest::newRow("filter between lines") << "lflflf";
        QTest::newRow("zoom redraws") << "lldzlz";
        QTest::newRow("zoom before the first line") << "zzl";
        QTest::newRow("polyline after the last line") << "lmlm";
        QTest::newRow("resize after a line") << "llr";
        QTest::newRow("line after a resize") << "lrdl";
    }
    void framedDrawingMatchesPerLine()
    {
        QFETCH(QString, script);
        CutView stepwise, burst;
        for (CutView* v : {&stepwise, &burst}) {
            v->resize(301, 201);
            v->show();
            QCoreApplication::processEvents();
        }
        play(stepwise, script, true);
        play(burst, script, false);
        const QImage expected = viewtest::rgb(stepwise.findChild<QLabel*>()->grab());
        QVERIFY(countColour(expected, kGood) > 0);
        QCOMPARE(viewtest::rgb(burst.findChild<QLabel*>()->grab()), expected);
        QCOMPARE(burst.image().size(), stepwise.image().size());
    }
};

VIEW_TEST_MAIN(TstCutView, true)
#include "tst_cutview.moc"
