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
#include <QStandardItemModel>
#include <QtTest>
#include <cstring>
#include <stdexcept>
#include <tuple>

using namespace vxlindral;

namespace {

using Pixels = std::vector<std::pair<uint32_t, uint16_t>>;

// A line in layout (datatyp 4, peak, basic): range 24 bits, intensity 16,
// quality 8, echo width 16; one (range, intensity) pair per pixel.
LineType makeLine(const Pixels& pixels, const std::vector<uint32_t>& headerWords = {0xA001, 3})
{
    auto line = std::make_shared<MyLine>();
    line->parser = std::make_shared<vx::RawLineParser>();
    line->parser->detect(4, vx::RawLineParser::MOD_PEAK, false);
    const int bpp = line->parser->bytesPerPixel();
    for (const auto& p : pixels) {
        uint8_t rec[8] = {};
        std::memcpy(rec, &p.first, 3);
        std::memcpy(rec + 3, &p.second, 2);
        line->data.insert(line->data.end(), rec, rec + bpp);
    }
    const auto* words = reinterpret_cast<const uint8_t*>(headerWords.data());
    line->header.assign(words, words + headerWords.size() * 4);
    line->pixel = static_cast<int>(pixels.size());
    auto s = line->parser->calc(reinterpret_cast<const char*>(line->data.data()), line->pixel);
    std::tie(line->avr, line->sdev, line->min, line->max) = std::tie(s.avr, s.sdev, s.min, s.max);
    return line;
}

bool feed(StreamDataModel& m, const LineType& line)
{
    return m.setData(QModelIndex(), QVariant::fromValue(line));
}

QString cell(const QAbstractItemModel& m, int row, int col)
{
    return m.data(m.index(row, col)).toString();
}

// Reaches cells outside a model's own shape: the index of another model
// that has them.
QString direct(const QAbstractItemModel& m, int row, int col)
{
    static QStandardItemModel probe(100, 100);
    return m.data(probe.index(row, col)).toString();
}

} // namespace

class TestModels : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { qRegisterMetaType<Qt::Orientation>(); }
    void intakeAndHistory()
    {
        StreamDataModel m;
        QCOMPARE(m.currentLineText(), QString());
        m.setDifferenceMode(true); // needs a line: stays off
        QVERIFY(!m.isDifferenceMode());

        QSignalSpy inserted(&m, &StreamDataModel::rowsInserted);
        QSignalSpy changed(&m, &StreamDataModel::dataChanged);
        QSignalSpy emitted(&m, &StreamDataModel::newLine);
        // Every line has another length, so the table changes shape each time.
        std::vector<LineType> sent;
        for (int n = 1; n <= 11; ++n) {
            sent.push_back(makeLine(Pixels(static_cast<std::size_t>(n), {1, 2})));
            QVERIFY(feed(m, sent.back()));
            QVERIFY(m.rowCount() == n && m.columnCount() == 4);
            // Rows 0 to n and the corner (n, 4): one past the last row and column.
            const auto corner = changed.last().at(1).value<QModelIndex>();
            QCOMPARE((QList<int>{inserted.last().at(2).toInt(), corner.row(), corner.column()}),
                     (QList<int>{n, n, 4}));
            QCOMPARE(emitted.takeFirst().at(0).value<LineType>(), sent.back());
        }
        // The history keeps the ten newest lines.
        QVERIFY(sent[0].use_count() == 1 && sent[1].use_count() == 2);

        feed(m, makeLine({{10, 20}, {30, 40}}));
        QCOMPARE(m.currentLineText(), QStringLiteral("# range intensity quality echo width\n"
                                                     "10 20 0 0\n30 40 0 0\n"));
        // A variant without a line clears the current line only.
        QVERIFY(m.setData(QModelIndex(), QVariant(42)));
        QVERIFY(!m.currentLine() && m.rowCount() == 2 && m.historySize() == 10);
        QCOMPARE(cell(m, 0, 0), QString());
    }
    void cellText()
    {
        // Reference line ranges 100, 200; current line ranges 150, 90, 7. The
        // reference stays the line shown when difference mode was switched on.
        StreamDataModel m;
        feed(m, makeLine({{100, 1}, {200, 1}}));
        m.setDifferenceMode(true);
        feed(m, makeLine({{150, 1}, {90, 9}, {7, 1}}));
        const struct
        {
            const char* name;
            bool difference, hex;
            int row, col;
            QVariant expected;
        } rows[] = {
            // Difference rows first: switching the mode on again would take a
            // new reference.
            {"diff reference minus current", true, false, 0, 0, -50.0},
            {"diff ignores hex", true, true, 1, 0, 110.0},
            {"diff row missing in reference", true, false, 2, 0, -7.0},
            {"decimal", false, false, 0, 0, QStringLiteral("150")},
            {"hex by width", false, true, 0, 0, QStringLiteral("000096")},
            {"row beyond table", false, false, 3, 0, QVariant()},
        };
        for (const auto& r : rows) {
            if (!r.difference)
                m.setDifferenceMode(false);
            m.setDisplayMode(r.hex ? StreamDataModel::DISPLAY_HEX : StreamDataModel::DISPLAY_DEC);
            const QVariant got = m.data(m.index(r.row, r.col));
            QVERIFY2(got == r.expected,
                     qPrintable(QStringLiteral("%1: %2").arg(r.name, got.toString())));
        }
    }
    void statisticFormat()
    {
        // Fields: 0 range (24 bits), 1 intensity (16), 2 quality (8), 9 none.
        const struct
        {
            int field;
            double value;
            bool hex;
            const char* expected;
        } rows[] = {
            {0, -0.5, false, "-0.50"},         // two decimals
            {0, 12345.678, false, "12345.68"}, // rounded, never cut
            {2, 10.9, true, "0a"},             // padded to the field's width
            {2, 511.0, true, "ff"},            // low bits only
            {1, -1.9, true, "ffff"},           // truncated toward zero
            {9, -2.0, true, "fffffffe"},       // no field: 32 bits
            {1, qQNaN(), true, "0000"},
        };
        StreamAverageDataModel m;
        StreamDiffAverageDataModel d;
        for (const auto& r : rows) {
            LineType line = makeLine({{1, 1}});
            line->avr.assign(10, r.value);
            const auto mode = r.hex ? StreamDataModel::DISPLAY_HEX : StreamDataModel::DISPLAY_DEC;
            m.updateNewLine(line);
            d.updateNewLine(line);
            m.setDisplayMode(mode);
            d.setDisplayMode(mode);
            // The average model shows field f in column f, the difference
            // model in row f.
            QCOMPARE(direct(m, 0, r.field) + '|' + direct(d, r.field, 0),
                     QStringLiteral("%1|%1").arg(QLatin1String(r.expected)));
        }
    }
    void averageAndDiffModels()
    {
        StreamAverageDataModel m;
        QSignalSpy headers(&m, &QAbstractItemModel::headerDataChanged);
        m.updateNewLine(makeLine({{10, 1}, {20, 3}}));
        QVERIFY(m.rowCount() == 4 && m.columnCount() == 4);
        QCOMPARE(headers.count(), 2);
        QCOMPARE((QStringList{cell(m, 0, 0), cell(m, 1, 0), cell(m, 2, 0), cell(m, 3, 0),
                              m.headerData(3, Qt::Vertical).toString()}),
                 (QStringList{"15.00", "5.00", "10.00", "20.00", "max"}));
        QVERIFY(direct(m, 4, 0).isNull()); // the first line stored 4 rows

        // Later lines store their pixel count as the row count, so row 4 of an
        // 8-pixel line reaches the statistic lookup.
        m.updateNewLine(makeLine(Pixels(8, {1, 1})));
        QCOMPARE(headers.count(), 2); // only the first line announces headers
        QVERIFY_EXCEPTION_THROWN(direct(m, 4, 0), std::invalid_argument);

        StreamDiffAverageDataModel d;
        d.updateNewLine(makeLine({{10, 1}}));
        QCOMPARE(d.rowCount(), 4);                       // one row per field
        QCOMPARE(cell(d, 0, 2), QStringLiteral("0.00")); // the first line is its own reference

        d.updateNewLine(makeLine({{25, 1}}));
        // Mean, its difference (current - reference), and the difference of the
        // maximum, reachable by a direct call only.
        QCOMPARE((QStringList{cell(d, 0, 0), cell(d, 0, 2), direct(d, 0, 5)}),
                 (QStringList{"25.00", "15.00", "15.00"}));
        QVERIFY_EXCEPTION_THROWN(direct(d, 0, 6), std::invalid_argument);
        QVERIFY(!d.data(d.index(0, 6)).isValid()); // outside the table: no cell

        d.setDiff();
        QCOMPARE(cell(d, 0, 2), QStringLiteral("0.00"));
        d.setDiff(); // every toggle takes a new reference, never clears it
        d.updateNewLine(makeLine({{20, 1}}));
        QCOMPARE(cell(d, 0, 2), QStringLiteral("-5.00"));
        QCOMPARE(d.headerData(1, Qt::Vertical).toString(), QStringLiteral("intensity"));
    }
    void headerModel()
    {
        StreamHeaderDataModel m;
        // Collapsed, the values step through the header one byte at a time.
        m.updateNewLine(makeLine({{1, 1}}, {0xA001, 3}));
        QCOMPARE(cell(m, 0, 0), QStringLiteral("0000a001 030000a0"));
        QCOMPARE(m.data(m.index(0, 0), Qt::TextAlignmentRole).toInt(), int(Qt::AlignLeft));
        m.updateNewLine(makeLine({{1, 1}}, {}));
        QVERIFY(!m.data(m.index(0, 0)).isValid()); // no header bytes, nothing shown

        m.updateNewLine(makeLine({{1, 1}}, {7, 1000, 0, 0, 0, 0, 0, 0}));
        QSignalSpy headers(&m, &QAbstractItemModel::headerDataChanged);
        m.setExpandHeader(true);
        QCOMPARE(headers.count(), 2);
        QCOMPARE((QList<int>{headers.at(0).at(2).toInt(), headers.at(1).at(2).toInt()}),
                 (QList<int>{8, 4}));
        QStringList titles;
        for (int s = -1; s < 4; ++s)
            titles << m.headerData(s, Qt::Horizontal).toString();
        QCOMPARE(titles, (QStringList{"-1", "raw value", "description", "value", "raw value"}));
        QCOMPARE(cell(m, 0, 1) + ' ' + cell(m, 0, 2), QStringLiteral("line counter 7"));

        // Expanded, the true words in hex and binary (rows up to the pixel
        // count are read); a 3-byte header has no words (no rows of its own),
        // so it shows 0.
        LineType line = makeLine({{1, 1}, {2, 2}}, {0, 0x80000001});
        m.updateNewLine(line);
        QCOMPARE(m.rowCount(), 2);
        QCOMPARE(direct(m, 1, 0) + direct(m, 1, 3),
                 QString("80000001 10000000:00000000:00000000:00000001"));
        line = makeLine({{1, 1}}, {0xFFFFFFFF});
        line->header.resize(3);
        m.updateNewLine(line);
        QCOMPARE(m.rowCount(), 0);
        QCOMPARE(direct(m, 0, 0) + direct(m, 0, 3),
                 QString("00000000 00000000:00000000:00000000:00000000"));
    }
};

QTEST_GUILESS_MAIN(TestModels)
#include "tst_models.moc"
