#pragma once
#include "app/streamhealthlabel.h"

#include <QWidget>

class QLabel;
class QProgressBar;

namespace vxlindral {

// The right end of the window's status line: the capture being recorded
// (hidden while none is), a capture's index while it is built (progress and
// Cancel), and the health of every open source (StreamHealthLabel). It lies
// in the status label's own cell and keeps that label's text clear of it.
//
// Ownership: owned by its parent widget; owns its labels and bar. Threads:
// GUI thread only.
class StatusRow : public QWidget
{
    Q_OBJECT
public:
    // `sources` lists the open sources for the health label; `statusLabel`
    // is the label whose right margin keeps its text clear of the row.
    StatusRow(StreamHealthLabel::Source sources, QLabel* statusLabel, QWidget* parent);

    StreamHealthLabel* health() const { return healthLabel; }
    // The recording's text; empty hides it.
    void setRecordingText(const QString& text);
    // The index's progress (0..1) while `indexing`; hidden otherwise.
    void showIndex(bool indexing, double progress);
    // Sets the status label's right margin to the room the row takes now.
    void reserveRoom();

signals:
    void cancelIndexRequested();

private:
    QLabel* status;
    QLabel* recordingLabel;
    QWidget* indexBox;
    QProgressBar* indexProgress;
    StreamHealthLabel* healthLabel;
};

} // namespace vxlindral
