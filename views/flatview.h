#pragma once
#include "views/basicview.h"
#include "views/framesync.h"
#include "views/ringimage.h"

#include <QPixmap>

class QAction;
class QThread;

namespace vxlindral {

// The gray-value view: each line becomes a new row (waterfall, scrolling up by
// 2 pixels) or a new column (right to left, scrolling left by 1 pixel) of gray
// values following the intensities; a flip mirrors the new lines.
// Every line is drawn at once into a ring of rows or columns (no pixels move
// when it scrolls); the picture in display order is composed and shown once
// per display frame, and before any paint of the label.
// Ownership: its picture, actions and frame pacer; the never-started thread
// object is owned by the view. Threads: GUI thread only; the base mutex
// guards the picture while it scrolls, is drawn into, or is resized.
class FlatView : public BasicView
{
    Q_OBJECT
public:
    explicit FlatView(QWidget* parent = nullptr);
    ~FlatView() override;

    QToolBar* toolBar() override;
    // The picture with every line taken in, at its full size.
    QImage picture() override;
    // The picture white again at its size, in its mode and flip.
    void clearLines(uint64_t before) override;
    // The lines the picture shows: waterfall (h + 1) / 2 (two rows a line),
    // right to left w - 1 (each line also paints over the previous line's
    // column); at least 1. Exact when every line writes every pixel of its
    // stripe that any line writes (see docs/decisions/views.md, "Seeking").
    int reachBack() const override;

    int getDisplayMode() const { return displayMode; }
    int getDirection() const { return direction; }
    // The picture as shown, with every line taken in.
    const QPixmap& image();

    // Gray value of an intensity for the range minI .. maxI with
    // r = (maxI - minI) / 210: 45 at minI, 255 at maxI and white outside
    // (the difference is unsigned, so values below minI wrap to white).
    static int grayValue(uint32_t intensity, int minI, double r);

signals:
    void signalNewImage();

public slots:
    void updateNewLine(vxlindral::LineType line) override;
    // Shows the picture in the label at the next frame.
    void setImage();
    void updateImage();
    void handleDisplayMode();
    void handleMirrow();
    void handleConfigChanged() override;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void drawRow(const MyLine& line, int w, int h);
    void drawColumn(const MyLine& line, int w, int h);
    // Composes the picture into the pixmap not shown and shows that one.
    void showPicture();
    RingImage::Axis axis() const { return displayMode == 0 ? RingImage::Rows : RingImage::Columns; }

    RingImage ring;
    // The composed picture: the label shows pixmaps[shown]; the other one is
    // composed into next, so that neither is shared while it is painted.
    QPixmap pixmaps[2];
    int shown = 0;
    FrameSync* frames = nullptr;
    bool initPending = true;
    int direction = 1;
    int displayMode = 1;
    QAction* modeAction = nullptr;
    QAction* flipAction = nullptr;
    QThread* idleThread = nullptr;
};

} // namespace vxlindral
