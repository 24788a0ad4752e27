#include "views/statisticview.h"

#include <QIcon>
#include <QLabel>

namespace vxlindral {

StatisticView::StatisticView(QWidget* parent) : BasicView(parent)
{
    setWindowTitle(tr("Info"));
    setWindowIcon(QIcon(QStringLiteral(":/PixMaps/info.svg")));
    createContent();
}

StatisticView::~StatisticView() = default;

QString StatisticView::text() const
{
    return label ? label->text() : QString();
}

void StatisticView::updateNewLine(vxlindral::LineType) {}

void StatisticView::updateStatistic(const QString& message)
{
    // QLabel's default text format renders markup (the stream's HTML tables)
    // as rich text and anything else as plain text.
    label->setText(message);
    label->adjustSize();
}

void StatisticView::handleConfigChanged() {}

} // namespace vxlindral
