// libFuzzer target of the whole decode the viewer runs on its receive
// thread, and of what the GUI thread then reads: datagrams (each prefixed by
// a 2-byte little-endian length and a tag byte) through reassembly, a
// backlog of undecoded messages while the "GUI thread" is away, the line
// receiver (header checks, information texts, column layouts, points,
// statistics) and the hand-over, into the data, average, difference and
// header models, every cell of which is read. No widgets.
//
// The tag byte: bits 0-1 the sender, bit 2 "the GUI thread is away" (the
// message waits in the backlog), bit 3 "the GUI thread runs" (waiting
// messages are delivered and the posted drains run), bits 4-7 move the
// reassembly clock on.
#include "models/streamaveragedatamodel.h"
#include "models/streamdatamodel.h"
#include "models/streamdiffaveragedatamodel.h"
#include "models/streamheaderdatamodel.h"
#include "scanner/messageassembler.h"
#include "scanner/messagebacklog.h"
#include "stream/myvxlinedatastream.h"

#include <QCoreApplication>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace {

uint64_t fakeNow = 0;

// Reads every cell of `model`, as a table view would.
unsigned readAll(const QAbstractItemModel& model)
{
    unsigned sum = 0;
    const int rows = std::min(model.rowCount(), 4096), columns = model.columnCount();
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c)
            sum += unsigned(model.data(model.index(r, c)).toString().size());
    return sum;
}

struct Viewer
{
    std::shared_ptr<vxlindral::StreamDataModel> model =
        std::make_shared<vxlindral::StreamDataModel>();
    vxlindral::StreamAverageDataModel average;
    vxlindral::StreamDiffAverageDataModel difference;
    vxlindral::StreamHeaderDataModel header;
    vxlindral::MyVxLinedataStream receiver;
    QString lastText;

    Viewer()
    {
        QObject::connect(model.get(), &vxlindral::StreamDataModel::newLine, &average,
                         &vxlindral::StreamAverageDataModel::updateNewLine);
        QObject::connect(model.get(), &vxlindral::StreamDataModel::newLine, &difference,
                         &vxlindral::StreamDiffAverageDataModel::updateNewLine);
        QObject::connect(model.get(), &vxlindral::StreamDataModel::newLine, &header,
                         &vxlindral::StreamHeaderDataModel::updateNewLine);
        QObject::connect(model.get(), &vxlindral::StreamDataModel::notifyStatistic, model.get(),
                         [this](const QString& t) { lastText = t; });
        // Port 0 opens a socket; the messages come from this harness instead.
        receiver.setModel(model, 0);
        receiver.Disconnect(true);
    }
    // The GUI thread's turn: drains, then every model read.
    unsigned run()
    {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents();
        return readAll(*model) + readAll(average) + readAll(difference) + readAll(header) +
               unsigned(model->currentLineText().size() + lastText.size());
    }
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    vxlindral::registerLineType();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Viewer viewer;
    strmsocket::MessageAssembler assembler([] { return fakeNow; });
    strmsocket::MessageBacklog backlog(64 << 10);
    std::vector<char> buf;
    strmsocket::VxStreamDeviceInfo sender;
    std::strcpy(sender.ip, "127.0.0.1");
    const auto deliverWaiting = [&] {
        for (; !backlog.empty(); backlog.pop()) {
            const auto& m = backlog.front();
            viewer.receiver.DeliverMessage(m.sender, m.bytes.data(), m.length);
        }
    };
    volatile unsigned sink = 0;
    std::size_t at = 0;
    while (at + 3 <= size) {
        const std::size_t n = std::min<std::size_t>(data[at] | (data[at + 1] << 8), size - at - 3);
        const uint8_t tag = data[at + 2];
        fakeNow += tag >> 4;
        at += 3;
        const std::size_t cap = (tag & 1) ? n + strmsocket::MessageAssembler::kTail : n;
        buf.assign(data + at, data + at + n);
        buf.resize(cap);
        at += n;
        const auto r = assembler.feed(tag & 3, buf.data(), n, cap);
        if (r.message) {
            if (tag & 4) {
                while (!backlog.empty() && backlog.full(r.length))
                    backlog.pop();
                backlog.push(sender, std::chrono::steady_clock::now(), r.message, r.length);
            } else {
                deliverWaiting();
                viewer.receiver.DeliverMessage(sender, r.message, r.length);
            }
        }
        if (tag & 8) {
            deliverWaiting();
            sink = sink + viewer.run();
        }
    }
    deliverWaiting();
    sink = sink + viewer.run();
    return 0;
}
