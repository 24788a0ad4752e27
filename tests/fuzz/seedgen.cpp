// Writes a few seed inputs for fuzz_receive: well-formed raw lines and file
// headers, whole and fragmented, in the target's framing.
#include "scanner/wireencoder.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

using strmsocket::WireEncoder;

namespace {

void append(std::vector<char>& out, const std::vector<char>& d, unsigned char tag)
{
    out.push_back(static_cast<char>(d.size() & 0xff));
    out.push_back(static_cast<char>(d.size() >> 8));
    out.push_back(static_cast<char>(tag));
    out.insert(out.end(), d.begin(), d.end());
}

void write(const std::string& dir, int n, const std::vector<char>& bytes)
{
    const std::string path = dir + "/seed" + std::to_string(n);
    if (FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const std::string dir = argc > 1 ? argv[1] : ".";
    std::filesystem::create_directories(dir);
    int n = 0;
    // Tags: bits 0-1 the sender; for fuzz_decode bit 2 holds the message in
    // the backlog and bit 3 lets the GUI thread run.
    struct Kind
    {
        uint32_t sub, datatyp, mode, layoutFlag, bpp;
    } const kinds[] = {
        {1, 2, 0, 0, 8},  {1, 2, 0, 1, 5}, {2, 2, 0, 0, 5},  {2, 4, 0, 0, 8},
        {2, 4, 1, 0, 12}, {3, 2, 0, 0, 5}, {3, 9, 3, 0, 16}, {4, 2, 0, 0, 5},
    };
    for (const Kind& k : kinds) {
        WireEncoder::RawLine h;
        h.series = uint32_t(n);
        h.subProtocol = k.sub;
        h.datatyp = k.datatyp;
        h.mode = k.mode;
        h.layoutFlag = k.layoutFlag;
        h.bpp = k.bpp;
        h.pixel = 40;
        h.lineheadersize = 32;
        std::vector<char> body(32 + 40 * h.bpp);
        for (std::size_t i = 0; i < body.size(); ++i)
            body[i] = static_cast<char>(i * 7 + k.sub);
        const auto m = WireEncoder::rawLine(h, body.data(), body.size());
        std::vector<char> whole, pieces;
        append(whole, WireEncoder::fileHeader(0, "seed", {{100, -20.0}, {101, 1.0}, {323, 0.5}}),
               1);
        for (const auto& d : WireEncoder::fragment(k.sub, m.data(), m.size()))
            append(whole, d, 1);
        for (const auto& d : WireEncoder::fragment(k.sub + 10, m.data(), m.size()))
            append(whole, d, 1 | 4); // waits while the GUI thread is away
        for (const auto& d : WireEncoder::fragment(k.sub + 20, m.data(), m.size()))
            append(whole, d, 1 | 8); // then the GUI thread runs
        for (const auto& d : WireEncoder::fragment(k.sub + 30, m.data(), m.size(), 100))
            append(pieces, d, 2);
        write(dir, n++, whole);
        write(dir, n++, pieces);
    }
    return 0;
}
