// A module built wrong, for the server's tests: its method table has a row without a handler
// before the end row.
#include "platform/webapi.h"
#include "tests/modules/module_tables.h"

namespace {

void Answer(QUOR::APIRequest*, QUOR::APIResponse* response) { response->SetSuccess(Json::Value()); }

const QUOR::APIMethodEntry kMethods[] = {
    {"QUOR.Test.Half", 1, "whole", Answer},
    {"QUOR.Test.Half", 1, "gap", nullptr},
    {nullptr, 0, nullptr, nullptr},
};
const QUOR::APICheckEntry kChecks[] = {
    {nullptr, 0, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

QUOR_TEST_MODULE_TABLES(kMethods, kChecks)
