#pragma once
#include "views/basicview.h"
#include "views/framesync.h"

namespace vxlindral {

// The info view: shows the latest status or statistic text of a port in its
// label (rich text where the text looks like markup). Ignores the lines.
// The newest text is set, and the label sized to it, once per display frame
// and before any paint of the label.
// Ownership: widgets and the frame pacer through Qt parents. Threads: GUI
// thread only.
class StatisticView : public BasicView
{
    Q_OBJECT
public:
    explicit StatisticView(QWidget* parent = nullptr);
    ~StatisticView() override;

    // The text shown, the newest one given.
    QString text();
    // An empty text, as an empty text given would leave it.
    void clearLines(uint64_t before) override;

public slots:
    void updateNewLine(vxlindral::LineType newLine) override;
    void updateStatistic(const QString& message) override;
    void handleConfigChanged() override;

private:
    void showText();

    QString pendingText;
    bool hadText = false; // a non-empty text was given
    FrameSync* frames = nullptr;
};

} // namespace vxlindral
