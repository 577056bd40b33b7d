// The entry points of QUOR.LogCenter.Search: the method table and the check table that the
// web-API server walks to the all-zero row.
#include "platform/webapi.h"
#include "search/position_methods.h"
#include "search/search_methods.h"

#define QUOR_EXPORT __attribute__((visibility("default")))

namespace {

const char kApi[] = "QUOR.LogCenter.Search";

// One row per method in each table.
const QUOR::APIMethodEntry kMethodTable[] = {
    {kApi, 1, "query", QueryMethod},   {kApi, 1, "histogram", HistogramMethod},
    {kApi, 1, "follow", FollowMethod}, {kApi, 1, "context", ContextMethod},
    {kApi, 1, "count", CountMethod},   {nullptr, 0, nullptr, nullptr},
};

const QUOR::APICheckEntry kCheckTable[] = {
    {kApi, 1, "query", CheckSearchParams, nullptr, nullptr},
    {kApi, 1, "histogram", CheckSearchParams, nullptr, nullptr},
    {kApi, 1, "follow", CheckFollowParams, nullptr, nullptr},
    {kApi, 1, "context", CheckContextParams, nullptr, nullptr},
    {kApi, 1, "count", CheckSearchParams, nullptr, nullptr},
    {nullptr, 0, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

extern "C" {
QUOR_EXPORT const QUOR::APIMethodEntry* GetAPITable() { return kMethodTable; }
QUOR_EXPORT const QUOR::APICheckEntry* GetAPICheckTable() { return kCheckTable; }
}
