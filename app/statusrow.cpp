#include "app/statusrow.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QToolButton>

namespace vxlindral {

StatusRow::StatusRow(StreamHealthLabel::Source sources, QLabel* statusLabel, QWidget* parent)
    : QWidget(parent), status(statusLabel)
{
    const int space = fontMetrics().horizontalAdvance(QLatin1Char(' '));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(3 * space);
    recordingLabel = new QLabel(this);
    recordingLabel->setObjectName(QStringLiteral("labelCapture"));
    recordingLabel->setTextFormat(Qt::PlainText);
    recordingLabel->hide();

    indexBox = new QWidget(this);
    auto* indexRow = new QHBoxLayout(indexBox);
    indexRow->setContentsMargins(0, 0, 0, 0);
    indexProgress = new QProgressBar(indexBox);
    indexProgress->setObjectName(QStringLiteral("indexProgress"));
    indexProgress->setRange(0, 100);
    indexProgress->setFormat(tr("Indexing %p%"));
    indexProgress->setMaximumWidth(20 * fontMetrics().horizontalAdvance(QLatin1Char('0')));
    auto* cancelIndex = new QToolButton(indexBox);
    cancelIndex->setObjectName(QStringLiteral("cancelIndex"));
    cancelIndex->setText(tr("Cancel"));
    cancelIndex->setToolTip(
        tr("Stop indexing the capture; the lines found so far stay reachable."));
    connect(cancelIndex, &QToolButton::clicked, this, &StatusRow::cancelIndexRequested);
    indexRow->addWidget(indexProgress);
    indexRow->addWidget(cancelIndex);
    indexBox->hide();
    row->addWidget(indexBox);

    healthLabel = new StreamHealthLabel(std::move(sources), this);
    healthLabel->setObjectName(QStringLiteral("labelStreamHealth"));
    row->addWidget(recordingLabel);
    row->addWidget(healthLabel);
    // The status label's own text (cursor readout, recording) keeps clear of it.
    connect(healthLabel, &StreamHealthLabel::textUpdated, this, &StatusRow::reserveRoom);
}

void StatusRow::setRecordingText(const QString& text)
{
    recordingLabel->setText(text);
    recordingLabel->setVisible(!text.isEmpty());
    reserveRoom();
}

void StatusRow::showIndex(bool indexing, double progress)
{
    if (indexing)
        indexProgress->setValue(static_cast<int>(progress * 100));
    if (indexBox->isHidden() == indexing) {
        indexBox->setVisible(indexing);
        reserveRoom();
    }
}

void StatusRow::reserveRoom()
{
    const bool empty =
        healthLabel->text().isEmpty() && recordingLabel->isHidden() && indexBox->isHidden();
    const int reserve =
        empty ? 0 : sizeHint().width() + 3 * fontMetrics().horizontalAdvance(QLatin1Char(' '));
    QMargins margins = status->contentsMargins();
    if (margins.right() != reserve) {
        margins.setRight(reserve);
        status->setContentsMargins(margins);
    }
}

} // namespace vxlindral
