#pragma once
#include "views/basicview.h"

namespace vxlindral {

// The info view: shows the latest status or statistic text of a port in its
// label (rich text where the text looks like markup). Ignores the lines.
// Ownership: widgets through Qt parents. Threads: GUI thread only.
class StatisticView : public BasicView
{
    Q_OBJECT
public:
    explicit StatisticView(QWidget* parent = nullptr);
    ~StatisticView() override;

    QString text() const;

public slots:
    void updateNewLine(vxlindral::LineType newLine) override;
    void updateStatistic(const QString& message) override;
    void handleConfigChanged() override;
};

} // namespace vxlindral
