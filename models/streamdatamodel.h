#pragma once
#include "line/linetype.h"

#include <QAbstractListModel>
#include <QMutex>
#include <QString>
#include <atomic>
#include <vector>

namespace vxlindral {

// The item model behind one port's numeric table: the newest line of the port
// and a history of the 10 newest, shown as one row per pixel and one column
// per field of the line's layout (decimal, hexadecimal, or in difference mode
// the reference minus the current value).
//
// Ownership: the main window holds one per port by shared pointer; the
// receiver of that port holds another reference. Lines are shared handles.
// Threads: GUI thread for everything, except setSeries() which the receive
// thread calls and notifyStatistic, which the receiver emits from its thread.
// setData() is called by the receiver's LineQueue when it drains on the GUI
// thread and holds the model's mutex; the read operations take no lock.
class StreamDataModel : public QAbstractListModel
{
    Q_OBJECT
public:
    enum DISPLAY_MODE
    {
        DISPLAY_HEX = 0,
        DISPLAY_DEC = 1,
    };

    explicit StreamDataModel(QObject* parent = nullptr);
    ~StreamDataModel() override;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    // The current line as text (header line naming the columns, one row per
    // pixel, values separated by a blank); empty without a current line.
    QString currentLineText() const;

    // Series number of the latest raw line; written by the receive thread.
    void setSeries(int series) { currentSeries.store(series, std::memory_order_relaxed); }
    int series() const { return currentSeries.load(std::memory_order_relaxed); }

    // Back to no line yet: no current line or history,
    // no rows or columns, announced as a reset so that attached views stay
    // valid (a seek; the window then plays the newest lines again through
    // setData). The display and difference modes stay as the user set them,
    // and so does the line taken as the difference reference.
    // A derived model forgets what it keeps of its own as well.
    virtual void clearLines();
    // How many of the newest lines it keeps (its history): after clearLines
    // and that many lines taken in again it holds what taking in every line
    // from the first would have left.
    int reachBack() const { return historyLimit; }

    LineType currentLine() const { return current; }
    bool isDifferenceMode() const { return differenceMode; }
    DISPLAY_MODE displayMode() const { return mode; }
    std::size_t historySize() const { return history.size(); }
    // The lines it holds (its history), oldest first.
    const std::vector<LineType>& heldLines() const { return history; }

signals:
    void newLine(vxlindral::LineType line);
    void notifyStatistic(const QString& message);
    void notifyError(const QString& message);

public slots:
    void emitStatistic(const QString& message);
    void emitError(const QString& message);
    void setDisplayMode(StreamDataModel::DISPLAY_MODE mode);
    void setDifferenceMode(bool mode);

protected:
    // Text of statistic value `v` for a field `bits` wide: fixed-point with
    // two decimals, or in hexadecimal its low `bits` bits, bits / 4 digits.
    static QString formatStatistic(double v, DISPLAY_MODE mode, int bits);
    // Writes the raw value (row, col) of `line` into `buffer` (80 bytes,
    // zeroed first); leaves it empty when the line has no such value.
    static void rawValueText(char* buffer, const LineType& line, int row, int col, bool hex);
    // Statistic `index` of `line` (0 mean, 1 standard deviation, 2 minimum,
    // 3 maximum); throws std::invalid_argument for any other index.
    static const std::vector<double>& statistic(const MyLine& line, int index);
    // Entry `field` of a statistic; 0 for a field the line has no entry for.
    static double statisticEntry(const std::vector<double>& values, int field);
    // "%1" filled with the name of column `section` of the line's layout.
    static QString fieldName(const LineType& line, int section);
    // Bit width of column `section` of the line's layout (0 without one).
    static int fieldBits(const LineType& line, int section);
    // Intake of the statistics models: the line goes through setData(); the
    // first line since creation also sets the stored row count to 4 and
    // announces the new headers and layout.
    void takeStatisticsLine(const LineType& line);
    // The newest line of the history, or null.
    LineType newestLine() const { return history.empty() ? LineType() : history.back(); }

    std::atomic<int> currentSeries{-1};
    bool differenceMode = false;
    DISPLAY_MODE mode = DISPLAY_DEC;
    int rows = 0;
    int columns = 0;
    std::vector<LineType> history; // oldest first
    LineType current;
    LineType reference;
    int reserved = 0;
    int historyLimit = 10;
    QMutex mutex;
};

} // namespace vxlindral
