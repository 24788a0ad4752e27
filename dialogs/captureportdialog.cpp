#include "dialogs/captureportdialog.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>

CapturePortDialog::CapturePortDialog(QWidget* parent, const QString& fileName,
                                     const std::vector<vxrec::CapturePorts::Port>& ports,
                                     bool partial)
    : QDialog(parent), list(new QListWidget(this))
{
    if (parent)
        setWindowTitle(parent->window()->windowTitle());
    auto* question =
        new QLabel(tr("Choose the port of %1 to play:").arg(QFileInfo(fileName).fileName()), this);
    // Counts grouped with ',' whatever the user's locale, as in the status line.
    const QLocale grouping(QLocale::English, QLocale::UnitedStates);
    const uint16_t chosen = vxrec::CapturePorts::choose(ports);
    for (const auto& p : ports) {
        const QString count = grouping.toString(qulonglong(p.lines)) + (partial ? "+" : "");
        auto* item = new QListWidgetItem(
            (p.lines == 1 && !partial ? tr("%1  (%2 line)") : tr("%1  (%2 lines)"))
                .arg(p.port)
                .arg(count),
            list);
        item->setData(Qt::UserRole, int(p.port));
        if (p.port == chosen)
            list->setCurrentItem(item);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(list, &QListWidget::itemDoubleClicked, this, &QDialog::accept);
    connect(list, &QListWidget::currentItemChanged, this, [buttons](QListWidgetItem* current) {
        buttons->button(QDialogButtonBox::Ok)->setEnabled(current != nullptr);
    });

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(question);
    layout->addWidget(list);
    if (partial)
        layout->addWidget(new QLabel(tr("+: counted in the first part of the file."), this));
    layout->addWidget(buttons);
}

int CapturePortDialog::port() const
{
    const QListWidgetItem* item = list->currentItem();
    return item ? item->data(Qt::UserRole).toInt() : 0;
}

int CapturePortDialog::ask(QWidget* parent, const QString& fileName,
                           const std::vector<vxrec::CapturePorts::Port>& ports, bool partial)
{
    if (ports.empty())
        return 0;
    CapturePortDialog dialog(parent, fileName, ports, partial);
    return dialog.exec() == QDialog::Accepted ? dialog.port() : 0;
}
