// The module's entry points: the method table and the check table that the web-API server
// walks to the all-zero row.
#include "api/checks.h"
#include "api/methods.h"
#include "platform/webapi.h"

#define QUOR_EXPORT __attribute__((visibility("default")))

namespace {

const char kApi[] = "QUOR.Core.SyslogClient.Log";

const QUOR::APIMethodEntry kMethodTable[] = {
    {kApi, 1, "list", ListMethod},
    {kApi, 1, "export", ExportMethod},
    {kApi, 1, "clear", ClearMethod},
    {nullptr, 0, nullptr, nullptr},
};

}  // namespace

extern "C" {

QUOR_EXPORT extern const QUOR::APICheckEntry gCheckTable[];

// The check rows come in a different order from the method rows, and the version-0
// "get_remotearch_subfolder" row has no method: servers that walk the table rely on both.
const QUOR::APICheckEntry gCheckTable[] = {
    {kApi, 1, "export", CheckExportParams, nullptr, nullptr},
    {kApi, 1, "clear", CheckClearParams, nullptr, nullptr},
    {kApi, 1, "list", CheckListParams, nullptr, nullptr},
    {kApi, 0, "get_remotearch_subfolder", CheckAlwaysPass, nullptr, nullptr},
    {nullptr, 0, nullptr, nullptr, nullptr, nullptr},
};

QUOR_EXPORT const QUOR::APIMethodEntry* GetAPITable() { return kMethodTable; }
QUOR_EXPORT const QUOR::APICheckEntry* GetAPICheckTable() { return gCheckTable; }

}  // extern "C"
