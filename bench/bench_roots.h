// The appliance roots the benchmarks share.
#pragma once

#include <string>

// The 1,000,000-row demo root (with a 500 MB backup log), laid out on first use and kept
// between runs in QUOR_BENCH_ROOT; made the platform's root.
const std::string& SourcesBenchRoot();
