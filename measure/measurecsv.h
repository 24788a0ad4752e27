#pragma once
#include "measure/profilemeasure.h"

#include <cstddef>
#include <cstdint>

namespace vxmeasure {

// The measures of a run of lines as CSV: a header line naming the columns,
// then one row per line, written into a caller's buffer without allocating.
//
//   line        the line's number, 0 for the first line (of a capture)
//   points      points measured in the region
//   z_min_mm z_max_mm z_mean_mm base_mm top_mm height_mm width_mm centre_mm
//   noise_mm    lengths in millimetres, three decimals
//   angle_deg   degrees, three decimals
//   area_mm2    square millimetres, one decimal
//
// A measure without a value (no points, no feature) is an empty field.
// The numbers are formatted by hand: a decimal point whatever the locale,
// and quick enough for tens of thousands of rows a second.
// Plain functions; any thread.
class MeasureCsv
{
public:
    // The header line, ending in a newline.
    static const char* header();
    // A buffer of this size holds any row.
    static constexpr std::size_t kRowBytes = 512;
    // Writes the row of line `line` with `r`, ending in a newline, into
    // `out` (kRowBytes at least); returns its length.
    static std::size_t row(uint64_t line, const ProfileMeasure::Result& r, char* out);
};

} // namespace vxmeasure
