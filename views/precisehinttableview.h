#pragma once
#include <QTableView>

namespace vxlindral {

// A table whose size hint is exactly its content (headers plus all rows and
// columns), so that a layout can keep it as tall as its rows.
// Ownership: child of its view. Threads: GUI thread only.
class PreciseHintTableView : public QTableView
{
    Q_OBJECT
public:
    explicit PreciseHintTableView(QWidget* parent = nullptr);

    QSize sizeHint() const override;
};

} // namespace vxlindral
