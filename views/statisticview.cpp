#include "views/statisticview.h"

#include <QIcon>
#include <QLabel>

namespace vxlindral {

StatisticView::StatisticView(QWidget* parent) : BasicView(parent)
{
    setWindowTitle(tr("Info"));
    setWindowIcon(QIcon(QStringLiteral(":/PixMaps/info.svg")));
    createContent();
    frames = new FrameSync(this, [this] { showText(); });
    frames->watch(label);
}

StatisticView::~StatisticView() = default;

QString StatisticView::text()
{
    frames->flush();
    return label ? label->text() : QString();
}

void StatisticView::updateNewLine(vxlindral::LineType) {}

void StatisticView::clearLines(uint64_t)
{
    updateStatistic(QString());
}

void StatisticView::updateStatistic(const QString& message)
{
    pendingText = message;
    hadText = hadText || !message.isEmpty();
    frames->markPending();
}

void StatisticView::showText()
{
    // A label emptied after a text sizes itself unlike one that never had a
    // text; the texts skipped since the last frame would have made it such a
    // label.
    if (pendingText.isEmpty() && hadText && label->text().isEmpty())
        label->setText(QStringLiteral(" "));
    // QLabel's default text format renders markup (the stream's HTML tables)
    // as rich text and anything else as plain text.
    label->setText(pendingText);
    label->adjustSize();
}

void StatisticView::handleConfigChanged() {}

} // namespace vxlindral
