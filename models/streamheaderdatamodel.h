#pragma once
#include "models/streamdatamodel.h"

namespace vxlindral {

// The line header of a port's newest line. Collapsed: one cell with the
// header in hexadecimal. Expanded: one row per header word with its raw value,
// name, decoded value and binary form.
// Ownership: created by the view management with its numeric view as parent.
// Threads: GUI thread only (lines arrive through the queued updateNewLine).
class StreamHeaderDataModel : public StreamDataModel
{
    Q_OBJECT
public:
    explicit StreamHeaderDataModel(QObject* parent = nullptr);
    ~StreamHeaderDataModel() override;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

    bool isExpandHeader() const { return expandHeader; }

public slots:
    void updateNewLine(vxlindral::LineType newLine);
    void setExpandHeader(bool mode);

private:
    bool expandHeader = false;
};

} // namespace vxlindral
