#pragma once
#include "models/streamdatamodel.h"

namespace vxlindral {

// The per-field statistics of a port's newest line, one row per field: mean,
// standard deviation, and the mean's difference to a reference line
// (current - reference). The first line is its own reference; setDiff() takes
// the current line as the new reference.
// Ownership: created by the view management with its numeric view as parent.
// Threads: GUI thread only (lines arrive through the queued updateNewLine).
class StreamDiffAverageDataModel : public StreamDataModel
{
    Q_OBJECT
public:
    explicit StreamDiffAverageDataModel(QObject* parent = nullptr);
    ~StreamDiffAverageDataModel() override;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    LineType referenceLine() const { return diffReference; }
    // Also forgets the reference: the next line is its own reference again.
    void clearLines() override;

public slots:
    void updateNewLine(vxlindral::LineType line);
    void setDiff();
    // Makes `line` the reference (a seek gives the stream's first line,
    // which the whole stream played from its start would have taken).
    void setReference(vxlindral::LineType line);

private:
    LineType diffReference;
};

} // namespace vxlindral
