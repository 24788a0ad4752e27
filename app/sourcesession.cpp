#include "app/sourcesession.h"

#include "app/viewfactory.h"
#include "models/streamdatamodel.h"
#include "stream/streamdatacontroller.h"
#include "views/basicview.h"
#include "views/numericview.h"

#include <algorithm>

namespace vxlindral {

SourceSession::SourceSession(int key, const QString& name, QObject* parent)
    : QObject(parent), sourceKey(key), sourceName(name)
{
    dataModel = std::make_shared<StreamDataModel>();
    dataController = std::make_shared<StreamDataController>(dataModel);
}

SourceSession::~SourceSession()
{
    // The views go before their model and controller.
    for (BasicView* view : views()) {
        view->close();
        delete view;
    }
}

bool SourceSession::openPort(int portLine, int portStatus)
{
    return dataController && dataController->startStream(portLine, portStatus);
}

void SourceSession::stopStream()
{
    if (dataController)
        dataController->stopStream();
    dataController.reset();
    dataModel.reset();
}

BasicView* SourceSession::createView(int kind, QWidget* parent)
{
    BasicView* view = ViewFactory::create(kind, sourceKey, parent);
    if (!sourceName.isEmpty())
        view->setSourceName(sourceName);
    built.erase(std::remove_if(built.begin(), built.end(),
                               [](const QPointer<BasicView>& v) { return v.isNull(); }),
                built.end());
    built.append(view);
    // Closing the last view of the session tells the window (queued: the
    // closing view is gone by then).
    connect(view, &BasicView::closed, view, [view] { view->setProperty("closing", true); });
    connect(
        view, &BasicView::closed, this,
        [this, view] {
            for (BasicView* other : views()) {
                if (other != view && !other->property("closing").toBool())
                    return;
            }
            emit lastViewClosed();
        },
        Qt::QueuedConnection);

    StreamDataModel* model = dataModel.get();
    const auto queued = Qt::QueuedConnection;
    switch (kind) {
    case ViewFactory::Numeric:
        static_cast<NumericView*>(view)->showModel(model);
        break;
    case ViewFactory::Info:
        // Error texts take the place of the statistics; no lines.
        if (model) {
            connect(model, &StreamDataModel::notifyStatistic, view, &BasicView::updateStatistic,
                    queued);
            connect(model, &StreamDataModel::notifyError, view, &BasicView::updateStatistic,
                    queued);
        }
        break;
    default: // the cut, gray and 3D views
        if (model)
            connect(model, &StreamDataModel::newLine, view, &BasicView::updateNewLine, queued);
        break;
    }
    return view;
}

QList<BasicView*> SourceSession::views() const
{
    QList<BasicView*> list;
    for (const QPointer<BasicView>& view : built) {
        if (view)
            list.append(view);
    }
    return list;
}

void SourceSession::freeze(bool on)
{
    if (dataController)
        dataController->pauseStream(on);
}

QString SourceSession::lineText() const
{
    return dataModel ? dataModel->currentLineText() : QString();
}

int SourceSession::reachBack() const
{
    int lines = dataModel ? dataModel->reachBack() : 1;
    for (BasicView* view : views())
        lines = std::max(lines, view->reachBack());
    return lines;
}

bool SourceSession::health(StreamHealthLabel::Port& entry) const
{
    if (!dataController)
        return false;
    entry.port = sourceKey;
    entry.handover = dataController->handoverCounters();
    entry.socket = dataController->counters();
    return true;
}

} // namespace vxlindral
