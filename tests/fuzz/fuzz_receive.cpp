// libFuzzer target: the input is a sequence of datagrams (each prefixed by a
// 2-byte little-endian length and a 1-byte sender) fed through reassembly
// and dispatch, into a callback that reads every byte it may read.
#include "scanner/messageassembler.h"
#include "scanner/vxlinedatastream.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

uint64_t fakeNow = 0;

class Reader : public VxLinedataStream
{
public:
    void OnRawLine(const strmsocket::VxStreamDeviceInfo& device, const char*,
                   const strmsocket::LineRawInfo& info, const char* data, int count) override
    {
        unsigned sum = 0;
        for (unsigned char b : info.bytes)
            sum += b;
        if (count > 0) {
            const std::size_t declared =
                std::size_t(int32_t(info.word(2))) + std::size_t(count) * info.word(3);
            for (std::size_t i = 0; i < declared + 8; ++i)
                sum += static_cast<unsigned char>(data[i]);
            for (std::size_t i = declared; i < declared + 8; ++i)
                if (data[i] != 0)
                    __builtin_trap();
            for (int i = 0; i < count && i < 256; ++i) {
                double x, y, z;
                Set(device.device, i);
                XYZ0(device.device, x, y, z);
            }
        }
        sink += sum;
    }
    volatile unsigned sink = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Reader reader;
    strmsocket::MessageAssembler assembler([] { return fakeNow; });
    std::vector<char> buf;
    strmsocket::VxStreamDeviceInfo sender;
    std::strcpy(sender.ip, "127.0.0.1");
    std::size_t at = 0;
    while (at + 3 <= size) {
        const std::size_t n = std::min<std::size_t>(data[at] | (data[at + 1] << 8), size - at - 3);
        const uint32_t from = data[at + 2] & 3;
        fakeNow += data[at + 2] >> 2; // time moves on, sometimes past the timeout
        at += 3;
        // Alternate between the in-place path (room behind) and the copying one.
        const std::size_t cap = (from & 1) ? n + strmsocket::MessageAssembler::kTail : n;
        buf.assign(data + at, data + at + n);
        buf.resize(cap);
        at += n;
        const auto r = assembler.feed(from, buf.data(), n, cap);
        if (r.message)
            reader.DeliverMessage(sender, r.message, r.length);
    }
    return 0;
}
