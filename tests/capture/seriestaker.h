#pragma once
#include "scanner/vxlinedatastream.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

// A receiver for the capture tests, on a capture played back.
// Threads: OnRawLine on the receive thread; the rest from the test's thread.
// Takes lines only while `ready`; remembers their series numbers.
class SeriesTaker : public VxLinedataStream
{
public:
    ~SeriesTaker() override { Disconnect(true); }
    void OnRawLine(const strmsocket::VxStreamDeviceInfo&, const char* packet,
                   const strmsocket::LineRawInfo&, const char*, int) override
    {
        uint32_t serie = 0;
        std::memcpy(&serie, packet + 4, sizeof serie);
        std::lock_guard<std::mutex> guard(lock);
        series.push_back(serie);
    }
    bool ReadyForMessage() override { return ready.load(); }
    void setReady(bool on)
    {
        ready = on;
        if (on)
            ResumeDelivery();
    }
    std::size_t count()
    {
        std::lock_guard<std::mutex> guard(lock);
        return series.size();
    }
    std::vector<uint32_t> taken()
    {
        std::lock_guard<std::mutex> guard(lock);
        return series;
    }

private:
    std::atomic<bool> ready{true};
    std::mutex lock;
    std::vector<uint32_t> series;
};
