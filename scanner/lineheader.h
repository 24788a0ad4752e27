#pragma once
#include <string>

namespace vxs {

// A line header as the header-word functions see it: the address of the first
// 32-bit word and the length in bytes (a multiple of 4). Not owning.
struct LineHeader
{
    const void* data = nullptr;
    unsigned length = 0;
};

// Name of header word `index` ("line counter", "timestamp low", ...); an
// unnamed word answers "word N". The text stays valid until the next call on
// the same thread. Any thread.
const char* Lineheader2String(unsigned index);

// Decoded value of header word `index`, given the whole header (a word may
// need its neighbours, e.g. the 64-bit timestamp). Any index below the number
// of words answers; an unnamed word gives its decimal value. Any thread.
std::string LineheaderValue2String(const LineHeader& header, unsigned index);

} // namespace vxs
