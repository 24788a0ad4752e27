#pragma once
#include <QString>
#include <QStyle>
#include <QToolBar>

class QAction;
class QComboBox;
class QLabel;

namespace vxlindral {
class PositionSlider;

// The tool bar that steers a capture being played ("Transport"), shown while
// one is open: Play/Pause (Space), one line back (,) and forward (.), to the
// start (Ctrl+Home) and the end (Ctrl+End), the speed, Loop, marking the
// start (I) and the end (O) of a stretch to export (shown on the slider), the
// position slider (PositionSlider) and the position as text:
// "00:12.345 / 01:40.000  line 2,345 of 20,000". While the lines are still
// being counted the total is marked "20,000+"; before the first line the line
// part is left out.
//
// The bar only asks (the signals) and shows (the setters); it knows nothing
// of the window or the capture. Its signals come from the user alone: the
// setters and reset() emit nothing, so the owner can mirror the playback's
// state without echoes. The shortcuts act anywhere in the bar's window while
// the bar is shown, except where a focused widget takes the key itself (a
// text field types the blank, the comma and the full stop).
//
// Ownership: owned by its parent (the main window); owns its actions and
// widgets. Threads: GUI only.
class TransportBar : public QToolBar
{
    Q_OBJECT
public:
    // The speed box's factors, in its order; 0: as fast as possible.
    static constexpr double speeds[] = {0.1, 0.25, 0.5, 1, 2, 4, 10, 0};

    explicit TransportBar(QWidget* parent = nullptr);

    // "mm:ss.mmm"; the minutes go on past 59 ("62:03.456"); negative is 0.
    static QString timeText(qint64 ms);

    bool playing() const;
    // The chosen factor; 0: as fast as possible.
    double speed() const;
    bool loop() const;

public slots:
    void setDuration(qint64 ms);
    // The playback stands at `ms` from the start, on `line` (1-based) of
    // `lines`; `linesFinal` false while the total may still grow.
    void setPosition(qint64 ms, quint64 line, quint64 lines, bool linesFinal);
    void setPlaying(bool playing);
    // The marked stretch's start and end, in ms from the capture's start;
    // -1 where unmarked.
    void setMarks(qint64 startMs, qint64 endMs);
    // As for a capture just opened: 1x, no loop, playing, at 0 of 0.
    void reset();

signals:
    void playRequested(bool play);
    void stepRequested(int delta); // -1 or +1 line
    void toStartRequested();
    void toEndRequested();
    void speedChanged(double factor); // 0: as fast as possible
    void loopChanged(bool on);
    void seekRequested(qint64 msFromStart);
    void markStartRequested();
    void markEndRequested();

private:
    QAction* addButton(const char* name, const QString& text, QStyle::StandardPixmap icon,
                       const QKeySequence& key);
    void showPlaying(bool playing);
    void showPosition();

    QAction* playPause;
    QAction* loopAction;
    QComboBox* speedBox;
    PositionSlider* slider;
    QLabel* positionLabel;
    qint64 durationMs = 0;
    qint64 positionMs = 0;
    quint64 line = 0;
    quint64 lines = 0;
    bool linesFinal = true;
};

} // namespace vxlindral
