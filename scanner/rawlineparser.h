#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace vx {

// The column layout of a raw line and what can be computed from it. A layout
// is chosen from a fixed catalogue by (datatyp, mode); the extended form adds
// the columns for bytes beyond the basic ones. Each column is a bit field of a
// pixel record (bit offset from the pixel's first byte, little-endian).
// A copyable value. Thread-safety: const members may be called from any
// thread on a parser nobody modifies; detect()/reset() need exclusive access.
class RawLineParser
{
public:
    // Scan modes (word 0 of protocol 1.2/1.3 lines). Protocol 1.1 lines keep
    // MOD_CLASSIC.
    enum mod_t : int32_t
    {
        MOD_PEAK = 0,
        MOD_FIRST = 1,
        MOD_LAST = 2,
        MOD_STRONGEST = 3,
        MOD_MULTI = 4,
        MOD_CLASSIC = 5,
    };

    // One column: three 64-bit words. `bits` is the field width (1..32),
    // `flags` bit 0 marks a signed field, `offset` the bit offset within the
    // pixel, `name` a static NUL-terminated text ("range", "intensity", ...).
    struct ColDef
    {
        int32_t bits = 0;
        int32_t flags = 0;
        int64_t offset = 0;
        const char* name = "";
        bool isSigned() const { return (flags & 1) != 0; }
    };
    static_assert(sizeof(ColDef) == 24, "three 64-bit words");

    // Per-column statistics of one line: mean, standard deviation, minimum,
    // maximum, one entry per column in column order.
    struct AvrStd
    {
        std::vector<double> avr;
        std::vector<double> sdev;
        std::vector<double> min;
        std::vector<double> max;
    };

    RawLineParser() = default;

    // Looks (datatyp, mode) up in the catalogue. On success the layout is
    // replaced and true returned; on failure nothing changes and false is
    // returned.
    bool detect(int datatyp, mod_t mode, bool extended);
    // Clears the column list and bytes per pixel (datatyp and mode stay).
    void reset();

    // Name of the current mode ("peak", "classic", ...), or null when the mode
    // is not one of mod_t.
    const char* modAsString() const;
    static const char* modAsString(int mode);

    // Mean, population standard deviation, minimum and maximum of every
    // column over `count` records of stride() bytes at `bytes`. Computed from
    // exact integer sums, so the result does not depend on the records' order.
    AvrStd calc(const char* bytes, int count) const;
    // The same into `out`, reusing its arrays' storage.
    void calc(const char* bytes, int count, AvrStd& out) const;

    // Record size in bytes of the lines this parser reads (the line's bpp,
    // which may exceed the layout's bytes per pixel). 0 means
    // bytesPerPixel(). Reads never leave a record: column bits beyond the
    // stride read as 0. The receiver sets it on each line's own copy.
    void setStride(int bytes) { extra = bytes > 0 ? static_cast<uint64_t>(bytes) : 0; }
    int stride() const { return extra ? static_cast<int>(extra) : bpp; }

    int colCount() const { return static_cast<int>(cols.size()); }
    // Column `index`; an index out of range gives an empty column (bits 0,
    // name "").
    ColDef getColDef(int index) const;
    int bytesPerPixel() const { return bpp; }
    int datatyp() const { return dtyp; }
    mod_t mode() const { return static_cast<mod_t>(mod); }
    bool empty() const { return cols.empty(); }
    // Whether `other` was detected to the same columns for the same
    // (datatyp, mode); the stride is not compared.
    bool sameLayout(const RawLineParser& other) const;

    // Raw value of column `col` of pixel `row` of a line whose pixel records
    // start at `bytes` and are stride() apart; sign-extended for signed
    // columns. 0 for a column out of range.
    int64_t value(const char* bytes, int row, int col) const;

    // Writes the value as NUL-terminated text into `buffer` (at most `size`
    // bytes with the terminator): decimal, or hexadecimal zero-padded to
    // bits / 4 digits. Returns the number of characters written.
    int valueAsString(char* buffer, int size, const char* bytes, int row, int col, bool hex) const;

    // The whole line as text: a first line "# " + column names joined by
    // `separator`, then one line per pixel with its values in decimal (hex when
    // `hex` is non-zero) joined by `separator`, each ended by `lineEnd`.
    std::string lineToString(const char* bytes, int count, int hex, const char* separator,
                             const char* lineEnd) const;

private:
    int32_t dtyp = 0;
    int32_t mod = MOD_CLASSIC;
    uint64_t extra = 0; // stride, see setStride()
    std::vector<ColDef> cols;
    int bpp = 0;
};

} // namespace vx
