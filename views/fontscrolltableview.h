#pragma once
#include <QTableView>

class QWheelEvent;
class QResizeEvent;

namespace vxlindral {

// A table in bold print whose font grows and shrinks with the mouse wheel
// (8 .. 300 points). From 32 points on it hides the row numbers and shares the
// width equally among the columns.
// Ownership: child of its view. Threads: GUI thread only.
class FontScrollTableView : public QTableView
{
    Q_OBJECT
public:
    static constexpr int kMinPointSize = 8;
    static constexpr int kMaxPointSize = 300;
    static constexpr int kLargePrint = 32;

    explicit FontScrollTableView(QWidget* parent = nullptr);

    // Sizes rows and columns for the current font (see the class comment).
    void applyFontLayout();

protected:
    void wheelEvent(QWheelEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void setBoldPointSize(int size);
};

} // namespace vxlindral
