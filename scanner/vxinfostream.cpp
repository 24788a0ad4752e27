#include "scanner/vxinfostream.h"

#include "scanner/udpsocket.h"

#include <cerrno>
#include <sys/socket.h>
#include <thread>
#include <vector>

namespace {
constexpr std::size_t kInfoReceiveBuffer = 1024u * 1024u;
constexpr int kIdlePollMs = 200;
} // namespace

struct VxInfoStream::Impl
{
    strmsocket::UdpSocket socket;
    std::thread thread;
    std::atomic<bool> stopping{false};
    std::vector<char> buffer = std::vector<char>(65536);
};

VxInfoStream::VxInfoStream() = default;

VxInfoStream::~VxInfoStream()
{
    Disconnect(true);
}

void VxInfoStream::OnConnected() {}
void VxInfoStream::OnInfo(const char*, int) {}
void VxInfoStream::OnInfoStart() {}
void VxInfoStream::OnInfoEnd() {}
void VxInfoStream::OnProgress(int) {}

bool VxInfoStream::Connect(int port, const std::string& address)
{
    if (impl)
        return false;
    std::unique_ptr<Impl> d(new Impl);
    if (!d->socket.open(port, address, kInfoReceiveBuffer, false))
        return false;
    Impl* raw = d.get();
    impl = std::move(d);
    impl->thread = std::thread([this, raw] {
        // Exceptions from the callbacks are swallowed: a bad status message
        // must not end the program.
        const auto guarded = [](auto&& f) {
            try {
                f();
            } catch (...) {
            }
        };
        guarded([&] { OnConnected(); });
        guarded([&] { OnInfoStart(); });
        while (!raw->stopping.load(std::memory_order_acquire)) {
            const int w = raw->socket.wait(kIdlePollMs);
            if (w < 0)
                break;
            if (w != 1)
                continue; // timed out, or woken to look at the stop flag
            for (;;) {
                const ssize_t n =
                    ::recv(raw->socket.fd(), raw->buffer.data(), raw->buffer.size(), MSG_DONTWAIT);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n < 0 || raw->stopping.load(std::memory_order_relaxed))
                    break;
                if (!pause.load(std::memory_order_relaxed))
                    guarded([&] { OnInfo(raw->buffer.data(), static_cast<int>(n)); });
            }
        }
        guarded([&] { OnInfoEnd(); });
    });
    return true;
}

void VxInfoStream::Disconnect(bool)
{
    if (!impl)
        return;
    impl->stopping.store(true, std::memory_order_release);
    impl->socket.wake();
    if (impl->thread.joinable())
        impl->thread.join();
    impl.reset();
}

bool VxInfoStream::IsConnected() const
{
    return impl != nullptr;
}
