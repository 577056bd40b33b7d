// Time buckets of a histogram.
#include "search/search_result.h"

bool SpanFits(int64_t from, int64_t to) {
  return to < from ||
         static_cast<uint64_t>(to) - static_cast<uint64_t>(from) <= (uint64_t{1} << 62);
}

void LayOutBuckets(int64_t from, int64_t to, int buckets, Histogram* histogram) {
  histogram->from = from;
  histogram->to = to;
  histogram->counts = Json::Value(Json::arrayValue);
  if (to < from) return;
  // Whole seconds, wide enough that buckets of them cover [from, to].
  uint64_t span = static_cast<uint64_t>(to - from) + 1;
  uint64_t width = (span + static_cast<uint64_t>(buckets) - 1) / static_cast<uint64_t>(buckets);
  if (width == 0) width = 1;
  histogram->bucket = static_cast<int64_t>(width);
  uint64_t rows = (span + width - 1) / width;
  for (uint64_t i = 0; i < rows; ++i) {
    Json::Value row(Json::arrayValue);
    row.append(static_cast<Json::Int64>(from + static_cast<int64_t>(i * width)));
    for (int level = 1; level <= 3; ++level) row.append(0);
    histogram->counts.append(row);
  }
}

void CountInBucket(bool timed, int64_t seconds, int level, int64_t count, Histogram* histogram) {
  if (!timed) seconds = histogram->from;
  if (seconds < histogram->from || seconds > histogram->to) return;
  Json::ArrayIndex index = static_cast<Json::ArrayIndex>(
      static_cast<uint64_t>(seconds - histogram->from) / static_cast<uint64_t>(histogram->bucket));
  if (index >= histogram->counts.size()) return;
  if (level < 1 || level > 3) level = 1;
  Json::Value& cell = histogram->counts[index][level];
  cell = static_cast<Json::Int64>(cell.asInt64() + count);
}
