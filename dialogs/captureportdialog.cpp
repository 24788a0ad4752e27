#include "dialogs/captureportdialog.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

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

int CapturePortDialog::choose(QWidget* parent, const QString& path, int port, QString& refusal)
{
    const QString name = QFileInfo(path).fileName();
    vxrec::CapturePorts scan;
    if (!scan.scan(QFile::encodeName(path).toStdString())) {
        refusal =
            tr("Could not open %1: %2").arg(name, QString::fromLocal8Bit(scan.error().c_str()));
        return -1;
    }
    const std::vector<vxrec::CapturePorts::Port>& ports = scan.ports();
    if (port == 0) {
        if (ports.empty()) {
            refusal = tr("No scanner lines found in %1").arg(name);
            return -1;
        }
        return ports.size() == 1 ? ports.front().port : ask(parent, name, ports, scan.partial());
    }
    // A file read only in part may hold the port's lines further on.
    if (std::none_of(ports.begin(), ports.end(),
                     [port](const vxrec::CapturePorts::Port& p) { return p.port == port; }) &&
        !scan.partial()) {
        refusal = tr("No scanner lines found in %1").arg(name);
        return -1;
    }
    return port;
}
