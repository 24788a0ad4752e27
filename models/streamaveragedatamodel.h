#pragma once
#include "models/streamdatamodel.h"

namespace vxlindral {

// The per-field statistics of a port's newest line: four rows (mean,
// standard deviation, minimum, maximum), one column per field.
// Ownership: created by the view management with its numeric view as parent.
// Threads: GUI thread only (lines arrive through the queued updateNewLine).
class StreamAverageDataModel : public StreamDataModel
{
    Q_OBJECT
public:
    explicit StreamAverageDataModel(QObject* parent = nullptr);
    ~StreamAverageDataModel() override;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

public slots:
    void updateNewLine(vxlindral::LineType line);
};

} // namespace vxlindral
