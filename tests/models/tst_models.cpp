// The four line-data models: intake, history, cell texts, difference modes,
// statistics formatting and the header tables.
//
// QAbstractItemModelTester is not used: every intake announces rows 0 to
// rowCount (one past the end) and reports dataChanged up to one past the
// last row and column, both deliberate, and the tester rejects both.
#include "models/streamaveragedatamodel.h"
#include "models/streamdatamodel.h"
#include "models/streamdiffaveragedatamodel.h"
#include "models/streamheaderdatamodel.h"

#include <QSignalSpy>
#include <QtTest>
#include <cstring>
#include <stdexcept>

using namespace vxlindral;

namespace {

// A line in layout (datatyp 4, peak, basic): range 24 bits, intensity 16,
// quality 8, echo width 16; one (range, intensity) pair per pixel.
LineType makeLine(const std::vector<std::pair<uint32_t, uint16_t>>& pixels,
                  const std::vector<uint32_t>& headerWords = {0xA001, 3})
{
    auto line = std::make_shared<MyLine>();
    auto parser = std::make_shared<vx::RawLineParser>();
    parser->detect(4, vx::RawLineParser::MOD_PEAK, false);
    const int bpp = parser->bytesPerPixel();
    for (const auto& p : pixels) {
        uint8_t rec[8] = {};
        std::memcpy(rec, &p.first, 3);
        std::memcpy(rec + 3, &p.second, 2);
        line->data.insert(line->data.end(), rec, rec + bpp);
    }
    line->header.resize(headerWords.size() * 4);
    if (!headerWords.empty())
        std::memcpy(line->header.data(), headerWords.data(), line->header.size());
    line->pixel = static_cast<int>(pixels.size());
    auto stats = parser->calc(reinterpret_cast<const char*>(line->data.data()), line->pixel);
    line->avr = stats.avr;
    line->sdev = stats.sdev;
    line->min = stats.min;
    line->max = stats.max;
    line->parser = parser;
    return line;
}

QVariant wrap(const LineType& line)
{
    return QVariant::fromValue(line);
}

QString cell(const QAbstractItemModel& m, int row, int col)
{
    return m.data(m.index(row, col)).toString();
}

// Valid indexes at any position, for the direct calls that reach cells
// outside a model's own shape.
class Probe : public QAbstractTableModel
{
public:
    int rowCount(const QModelIndex& = QModelIndex()) const override { return 100; }
    int columnCount(const QModelIndex& = QModelIndex()) const override { return 100; }
    QVariant data(const QModelIndex&, int) const override { return QVariant(); }
};

QString direct(const QAbstractItemModel& m, int row, int col)
{
    static Probe probe;
    return m.data(probe.index(row, col)).toString();
}

} // namespace

class TestModels : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        qRegisterMetaType<Qt::Orientation>();
        qRegisterMetaType<QList<QPersistentModelIndex>>();
        qRegisterMetaType<QAbstractItemModel::LayoutChangeHint>();
    }
    void intakeShapesAndSignals();
    void historyKeepsTenNewest();
    void emptyVariantClearsCurrentOnly();
    void cellText_data();
    void cellText();
    void differenceModeNeedsALine();
    void intakeReleasesInFlightSlotOnce();
    void currentLineText();
    void statisticFormat_data();
    void statisticFormat();
    void averageModelFirstLine();
    void diffModelReferences();
    void outOfRangeStatisticThrows();
    void headerCollapsedStepsBytewise();
    void headerExpanded_data();
    void headerExpanded();
    void headerTitles();
};

void TestModels::intakeShapesAndSignals()
{
    StreamDataModel m;
    QCOMPARE(m.rowCount(), 0);
    QCOMPARE(m.columnCount(), 0);
    QVERIFY(!m.headerData(0, Qt::Horizontal).isValid());
    QCOMPARE(m.data(QModelIndex(), Qt::TextAlignmentRole).toInt(), int(Qt::AlignRight));

    QSignalSpy inserted(&m, &StreamDataModel::rowsInserted);
    QSignalSpy changed(&m, &StreamDataModel::dataChanged);
    QSignalSpy lines(&m, &StreamDataModel::newLine);

    // A line of another length changes the table's shape.
    for (int n : {3, 7}) {
        std::vector<std::pair<uint32_t, uint16_t>> px(static_cast<std::size_t>(n), {1, 2});
        const LineType line = makeLine(px);
        QVERIFY(m.setData(QModelIndex(), wrap(line)));
        QCOMPARE(m.rowCount(), n);
        QCOMPARE(m.columnCount(), 4);
        QCOMPARE(inserted.last().at(1).toInt(), 0);
        QCOMPARE(inserted.last().at(2).toInt(), n); // one past the last row
        const auto bottomRight = changed.last().at(1).value<QModelIndex>();
        QCOMPARE(bottomRight.row(), n);
        QCOMPARE(bottomRight.column(), 4);
        QCOMPARE(lines.last().at(0).value<LineType>(), line);
    }
    QCOMPARE(m.headerData(1, Qt::Horizontal).toString(), QStringLiteral("intensity"));
    QCOMPARE(m.headerData(5, Qt::Vertical).toString(), QStringLiteral("5"));
}

void TestModels::historyKeepsTenNewest()
{
    StreamDataModel m;
    std::vector<LineType> lines;
    for (int i = 0; i < 11; ++i) {
        lines.push_back(makeLine({{uint32_t(i), 0}}));
        m.setData(QModelIndex(), wrap(lines.back()));
    }
    QCOMPARE(m.historySize(), std::size_t(10));
    QCOMPARE(lines[0].use_count(), 1L); // pushed out
    QCOMPARE(lines[1].use_count(), 2L); // still held by the history
    QCOMPARE(m.currentLine(), lines[10]);
}

void TestModels::emptyVariantClearsCurrentOnly()
{
    StreamDataModel m;
    m.setData(QModelIndex(), wrap(makeLine({{1, 1}, {2, 2}})));
    QVERIFY(m.setData(QModelIndex(), QVariant(42)));
    QVERIFY(!m.currentLine());
    QCOMPARE(m.rowCount(), 2);
    QCOMPARE(m.historySize(), std::size_t(1));
    QCOMPARE(cell(m, 0, 0), QString());
}

void TestModels::cellText_data()
{
    QTest::addColumn<bool>("hex");
    QTest::addColumn<bool>("difference");
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("col");
    QTest::addColumn<QVariant>("expected");
    // Reference line ranges 100, 200; current line ranges 150, 90, 7.
    QTest::newRow("decimal") << false << false << 0 << 0 << QVariant(QStringLiteral("150"));
    QTest::newRow("hex by width") << true << false << 0 << 0 << QVariant(QStringLiteral("000096"));
    QTest::newRow("hex 16 bit") << true << false << 1 << 1 << QVariant(QStringLiteral("0009"));
    QTest::newRow("diff reference minus current") << false << true << 0 << 0 << QVariant(-50.0);
    QTest::newRow("diff shrinking value") << false << true << 1 << 0 << QVariant(110.0);
    QTest::newRow("diff ignores hex") << true << true << 1 << 0 << QVariant(110.0);
    QTest::newRow("diff row missing in reference") << false << true << 2 << 0 << QVariant(-7.0);
    QTest::newRow("row beyond table") << false << false << 3 << 0 << QVariant();
}

void TestModels::cellText()
{
    QFETCH(bool, hex);
    QFETCH(bool, difference);
    QFETCH(int, row);
    QFETCH(int, col);
    QFETCH(QVariant, expected);

    StreamDataModel m;
    m.setData(QModelIndex(), wrap(makeLine({{100, 1}, {200, 1}})));
    m.setDifferenceMode(true);
    m.setData(QModelIndex(), wrap(makeLine({{150, 1}, {90, 9}, {7, 1}})));
    if (!difference)
        m.setDifferenceMode(false); // switching on again would take a new reference
    m.setDisplayMode(hex ? StreamDataModel::DISPLAY_HEX : StreamDataModel::DISPLAY_DEC);
    QCOMPARE(m.data(m.index(row, col)), expected);
}

void TestModels::differenceModeNeedsALine()
{
    StreamDataModel m;
    m.setDifferenceMode(true);
    QVERIFY(!m.isDifferenceMode());
    m.setData(QModelIndex(), wrap(makeLine({{5, 5}})));
    m.setDifferenceMode(true);
    QVERIFY(m.isDifferenceMode());
    // The reference stays fixed while the mode is on.
    m.setData(QModelIndex(), wrap(makeLine({{8, 5}})));
    QCOMPARE(m.data(m.index(0, 0)).toDouble(), -3.0);
}

void TestModels::intakeReleasesInFlightSlotOnce()
{
    auto counter = std::make_shared<std::atomic<int>>(2);
    LineType a = makeLine({{1, 1}});
    LineType b = makeLine({{1, 1}});
    a->inFlight = counter;
    b->inFlight = counter;

    StreamDataModel port;
    StreamAverageDataModel average;
    QObject::connect(&port, &StreamDataModel::newLine, &average,
                     &StreamAverageDataModel::updateNewLine);
    port.setData(QModelIndex(), wrap(a)); // the chained intake must not release again
    QCOMPARE(counter->load(), 1);
    b.reset(); // a line dropped on the way gives its slot back
    QCOMPARE(counter->load(), 0);
}

void TestModels::currentLineText()
{
    StreamDataModel m;
    QCOMPARE(m.currentLineText(), QString());
    m.setData(QModelIndex(), wrap(makeLine({{10, 20}, {30, 40}})));
    QCOMPARE(m.currentLineText(), QStringLiteral("# range intensity quality echo width\n"
                                                 "10 20 0 0\n30 40 0 0\n"));
}

void TestModels::statisticFormat_data()
{
    QTest::addColumn<int>("field");
    QTest::addColumn<double>("value");
    QTest::addColumn<bool>("hex");
    QTest::addColumn<QString>("expected");
    // Fields: 0 range (24 bits), 1 intensity (16), 2 quality (8).
    QTest::newRow("dec integer") << 0 << 5.0 << false << QStringLiteral("5.00");
    QTest::newRow("dec negative") << 0 << -0.5 << false << QStringLiteral("-0.50");
    QTest::newRow("dec wide") << 0 << 12345.678 << false << QStringLiteral("12345.68");
    QTest::newRow("hex 8 bit padded") << 2 << 10.9 << true << QStringLiteral("0a");
    QTest::newRow("hex 8 bit keeps low bits") << 2 << 511.0 << true << QStringLiteral("ff");
    QTest::newRow("hex 16 bit negative") << 1 << -1.0 << true << QStringLiteral("ffff");
    QTest::newRow("hex truncates toward zero") << 1 << -1.9 << true << QStringLiteral("ffff");
    QTest::newRow("hex 24 bit") << 0 << 4660.0 << true << QStringLiteral("001234");
    QTest::newRow("hex no field: 32 bits") << 9 << -2.0 << true << QStringLiteral("fffffffe");
    QTest::newRow("hex not a number") << 1 << qQNaN() << true << QStringLiteral("0000");
}

void TestModels::statisticFormat()
{
    QFETCH(int, field);
    QFETCH(double, value);
    QFETCH(bool, hex);
    QFETCH(QString, expected);

    LineType line = makeLine({{1, 1}});
    line->avr.assign(10, value);
    StreamAverageDataModel m;
    m.updateNewLine(line);
    m.setDisplayMode(hex ? StreamDataModel::DISPLAY_HEX : StreamDataModel::DISPLAY_DEC);
    // The average model shows field `field` in column `field`; the difference
    // model in row `field`.
    QCOMPARE(direct(m, 0, field), expected);
    StreamDiffAverageDataModel d;
    d.updateNewLine(line);
    d.setDisplayMode(m.displayMode());
    QCOMPARE(direct(d, field, 0), expected);
}

void TestModels::averageModelFirstLine()
{
    StreamAverageDataModel m;
    QCOMPARE(m.columnCount(), 0);
    QVERIFY(!m.headerData(0, Qt::Vertical).isValid());
    QSignalSpy headers(&m, &QAbstractItemModel::headerDataChanged);
    QSignalSpy layout(&m, &QAbstractItemModel::layoutChanged);

    m.updateNewLine(makeLine({{10, 1}, {20, 3}}));
    QCOMPARE(m.rowCount(), 4);
    QCOMPARE(m.columnCount(), 4);
    QCOMPARE(headers.count(), 2);
    QCOMPARE(headers.at(0).at(2).toInt(), 4);
    QCOMPARE(headers.at(1).at(2).toInt(), 4);
    QCOMPARE(layout.count(), 1);
    const QStringList expected{"15.00", "5.00", "10.00", "20.00"};
    for (int r = 0; r < 4; ++r)
        QCOMPARE(cell(m, r, 0), expected[r]);
    QCOMPARE(m.headerData(3, Qt::Vertical).toString(), QStringLiteral("max"));
    QVERIFY(!m.headerData(4, Qt::Vertical).isValid());
    QCOMPARE(m.headerData(0, Qt::Horizontal).toString(), QStringLiteral("range"));

    m.updateNewLine(makeLine({{1, 1}}));
    QCOMPARE(headers.count(), 2); // only the first line announces headers
}

void TestModels::diffModelReferences()
{
    StreamDiffAverageDataModel m;
    QCOMPARE(m.rowCount(), 0);
    m.updateNewLine(makeLine({{10, 1}}));
    QCOMPARE(m.rowCount(), 4);
    QCOMPARE(m.columnCount(), 3);
    QCOMPARE(cell(m, 0, 2), QStringLiteral("0.00")); // the first line is its own reference

    m.updateNewLine(makeLine({{25, 1}}));
    QCOMPARE(cell(m, 0, 0), QStringLiteral("25.00"));
    QCOMPARE(cell(m, 0, 2), QStringLiteral("15.00"));   // current - reference
    QCOMPARE(direct(m, 0, 5), QStringLiteral("15.00")); // max, reachable by direct call only

    m.setDiff();
    QCOMPARE(cell(m, 0, 2), QStringLiteral("0.00"));
    m.setDiff(); // every toggle takes a new reference, never clears it
    m.updateNewLine(makeLine({{20, 1}}));
    QCOMPARE(cell(m, 0, 2), QStringLiteral("-5.00"));

    QCOMPARE(m.headerData(2, Qt::Horizontal).toString(), QStringLiteral("diff"));
    QCOMPARE(m.headerData(7, Qt::Horizontal).toString(), QStringLiteral("diff"));
    QCOMPARE(m.headerData(1, Qt::Vertical).toString(), QStringLiteral("intensity"));
}

void TestModels::outOfRangeStatisticThrows()
{
    StreamDiffAverageDataModel d;
    d.updateNewLine(makeLine({{1, 1}}));
    QVERIFY_EXCEPTION_THROWN(direct(d, 0, 6), std::invalid_argument);
    QVERIFY(!d.data(d.index(0, 6)).isValid()); // index() outside the table: no cell

    // After the first line the average model's stored row count is the
    // line's pixel count again, so a direct call with row 4 reaches the
    // statistic lookup.
    StreamAverageDataModel a;
    a.updateNewLine(makeLine({{1, 1}}));
    QVERIFY(direct(a, 4, 0).isNull());
    a.updateNewLine(makeLine(std::vector<std::pair<uint32_t, uint16_t>>(8, {1, 1})));
    try {
        direct(a, 4, 0);
        QFAIL("no exception");
    } catch (const std::invalid_argument& e) {
        QCOMPARE(QString::fromLatin1(e.what()), QStringLiteral("field index is out of range"));
    }
}

void TestModels::headerCollapsedStepsBytewise()
{
    StreamHeaderDataModel m;
    QCOMPARE(m.rowCount(), 1);
    m.updateNewLine(makeLine({{1, 1}}, {0xA001, 3}));
    QCOMPARE(cell(m, 0, 0), QStringLiteral("0000a001 030000a0"));
    QCOMPARE(m.data(m.index(0, 0), Qt::TextAlignmentRole).toInt(), int(Qt::AlignLeft));
    QVERIFY(!m.headerData(0, Qt::Vertical).isValid());

    m.updateNewLine(makeLine({{1, 1}}, {}));
    QVERIFY(!m.data(m.index(0, 0)).isValid()); // no header bytes, nothing shown
}

void TestModels::headerExpanded_data()
{
    QTest::addColumn<std::vector<uint32_t>>("words");
    QTest::addColumn<int>("headerBytes");
    QTest::addColumn<int>("row");
    QTest::addColumn<QString>("hex");
    QTest::addColumn<QString>("binary");
    QTest::newRow("low word") << std::vector<uint32_t>{0xA001, 3} << 8 << 0
                              << QStringLiteral("0000a001 ")
                              << QStringLiteral("00000000:00000000:10100000:00000001");
    QTest::newRow("top bit") << std::vector<uint32_t>{0, 0x80000001} << 8 << 1
                             << QStringLiteral("80000001 ")
                             << QStringLiteral("10000000:00000000:00000000:00000001");
    QTest::newRow("3-byte header")
        << std::vector<uint32_t>{0xFFFFFFFF} << 3 << 0 << QStringLiteral("00000000 ")
        << QStringLiteral("00000000:00000000:00000000:00000000");
}

void TestModels::headerExpanded()
{
    QFETCH(std::vector<uint32_t>, words);
    QFETCH(int, headerBytes);
    QFETCH(int, row);
    QFETCH(QString, hex);
    QFETCH(QString, binary);

    LineType line = makeLine({{1, 1}, {2, 2}}, words);
    line->header.resize(static_cast<std::size_t>(headerBytes));
    StreamHeaderDataModel m;
    m.updateNewLine(line);
    QSignalSpy headers(&m, &QAbstractItemModel::headerDataChanged);
    m.setExpandHeader(true);
    QCOMPARE(m.rowCount(), headerBytes / 4);
    QCOMPARE(m.columnCount(), 4);
    QCOMPARE(headers.count(), 2);
    QCOMPARE(headers.at(0).at(2).toInt(), headerBytes / 4);
    QCOMPARE(headers.at(1).at(2).toInt(), 4);
    QCOMPARE(direct(m, row, 0), hex); // the 3-byte header has no rows of its own
    QCOMPARE(direct(m, row, 3), binary);
    QCOMPARE(m.data(m.index(row, 0), Qt::TextAlignmentRole).toInt(), int(Qt::AlignRight));
    QCOMPARE(m.headerData(row, Qt::Vertical).toInt(), row);
}

void TestModels::headerTitles()
{
    StreamHeaderDataModel m;
    QVERIFY(!m.headerData(0, Qt::Horizontal).isValid());
    m.updateNewLine(makeLine({{1, 1}}, {7, 1000, 0, 0, 0, 0, 0, 0}));
    m.setExpandHeader(true);
    const QStringList titles{"raw value", "description", "value", "raw value"};
    for (int s = 0; s < 4; ++s)
        QCOMPARE(m.headerData(s, Qt::Horizontal).toString(), titles[s]);
    QCOMPARE(m.headerData(-2, Qt::Horizontal).toInt(), -2);
    QCOMPARE(cell(m, 0, 1), QStringLiteral("line counter"));
    QCOMPARE(cell(m, 0, 2), QStringLiteral("7"));
}

QTEST_GUILESS_MAIN(TestModels)
#include "tst_models.moc"
