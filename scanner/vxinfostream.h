#pragma once
#include <atomic>
#include <memory>
#include <string>

// The scanner's status stream: a UDP socket whose datagrams are passed to
// OnInfo as text. Ownership: owns its socket and thread. Threads:
// Connect/Disconnect/destruction from one controlling thread; callbacks on
// the stream's receive thread; `pause` from any thread.
class VxInfoStream
{
public:
    VxInfoStream();
    virtual ~VxInfoStream();
    VxInfoStream(const VxInfoStream&) = delete;
    VxInfoStream& operator=(const VxInfoStream&) = delete;

    virtual void OnConnected();
    // One status datagram (not NUL-terminated).
    virtual void OnInfo(const char* text, int length);
    virtual void OnInfoStart();
    // The receive thread is about to end.
    virtual void OnInfoEnd();
    virtual void OnProgress(int percent);

    bool Connect(int port, const std::string& address);
    // Stops and joins the receive thread; harmless when never connected.
    void Disconnect(bool wait);
    bool IsConnected() const;

    // While set, status datagrams are read and discarded.
    std::atomic<bool> pause{false};

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};
