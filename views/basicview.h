#pragma once
#include "line/linetype.h"

#include <QImage>
#include <QMdiSubWindow>
#include <QMutex>
#include <QString>
#include <cstdint>

class QLabel;
class QToolBar;

namespace vxlindral {

class MyLine;
class MyScrollArea;

// Base of every view sub-window: the port it shows, an optional tool bar, a
// scroll area with a label for image views, the filtered-display switch, the
// intensity range rule shared by the image views, and the signals by which a
// view reports closing and status-bar text.
// Ownership: the MDI area owns the view (it deletes itself on close); child
// widgets are owned through Qt parents. Threads: GUI thread only (also
// clearLines and reachBack).
class BasicView : public QMdiSubWindow
{
    Q_OBJECT
public:
    explicit BasicView(QWidget* parent = nullptr);
    ~BasicView() override;

    virtual void createContent();
    virtual QToolBar* toolBar();
    // What the view shows, for saving or copying as an image. The base grabs
    // the view's content below its tool bar as rendered; image views return
    // their own picture at its full resolution.
    virtual QImage picture();

    // Forgets the lines taken in, as if `before` lines of the stream had
    // already been taken in (a seek: the window then plays the newest lines
    // again through updateNewLine). The user's settings of the view (zoom,
    // pan, modes) stay. The base has nothing to forget.
    virtual void clearLines(uint64_t before);
    // How many of the newest lines can still influence what the view shows:
    // after clearLines and the newest reachBack() lines taken in again, the
    // view shows exactly what taking in every line from the first would have
    // shown. The base shows the newest line at most: 1.
    virtual int reachBack() const;
    // Holds the view's frames (FrameSync::hold) and its repaints: the lines
    // it takes in meanwhile are shown together once released.
    virtual void holdFrames(bool on);

    // Stores the port and appends " : Port <port>" to the current title.
    void setPort(int port);
    // Names the view's source in its title instead of the port: "Cut :
    // scan.pcapng" for a capture played back.
    void setSourceName(const QString& name);
    int getPort() const { return port; }

signals:
    void closed(const QString name);
    void updateStatusBar(const QString& message);

public slots:
    virtual void updateNewLine(vxlindral::LineType newLine) = 0;
    virtual void updateStatistic(const QString& message);
    // Narrows [minI, maxI] to the bulk of the line's intensities (mean - 2s ..
    // mean + 3s); a degenerate result becomes 0 .. 65535. Throws
    // std::out_of_range when the pixel count exceeds the points.
    // Reads only the line: the stretch export computes the 3D view's grays
    // without a view.
    static void calculateRanges(const vxlindral::MyLine* ln, int& minI, int& maxI);
    bool isFilteredDisplayed();
    void setDisplayFiltered(bool filtered);
    // Re-reads the view's settings; the base does nothing.
    virtual void handleConfigChanged();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

    int port = 0;
    MyScrollArea* scrollArea = nullptr;
    bool firstLine = true;
    QMutex mutex;
    QToolBar* toolBarWidget = nullptr;
    bool displayFiltered = false;
    QLabel* label = nullptr;
};

} // namespace vxlindral
