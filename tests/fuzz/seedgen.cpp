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
    for (uint32_t sub = 1; sub <= 3; ++sub) {
        WireEncoder::RawLine h;
        h.subProtocol = sub;
        h.bpp = sub == 1 ? 8 : 5;
        h.pixel = 40;
        h.lineheadersize = 32;
        std::vector<char> body(32 + 40 * h.bpp, 3);
        const auto m = WireEncoder::rawLine(h, body.data(), body.size());
        std::vector<char> whole, pieces;
        append(whole, WireEncoder::fileHeader(0, "seed", {{100, -20.0}, {101, 1.0}, {323, 0.5}}),
               1);
        for (const auto& d : WireEncoder::fragment(sub, m.data(), m.size()))
            append(whole, d, 1);
        for (const auto& d : WireEncoder::fragment(sub + 10, m.data(), m.size(), 100))
            append(pieces, d, 2);
        write(dir, n++, whole);
        write(dir, n++, pieces);
    }
    return 0;
}
