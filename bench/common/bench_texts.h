// Texts the benchmarks share, so that their rows measure the same words.
#pragma once

namespace vetext_bench {

// About 300 characters, for the paragraph rows.
inline constexpr const char* kParagraph =
    "Night trains carry letters across the valley while the river keeps its own slow time. "
    "Lamps along the platform flicker on one by one, and a porter counts the crates twice "
    "before he signs. Somewhere a radio plays an old waltz, and the last passengers fold their "
    "coats and settle in for the long ride north.";

}  // namespace vetext_bench
