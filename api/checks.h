// Parameter checkers of the check table: each lets a request through (true) or answers it with
// error 120 and a detail {"name", "reason"} naming the first failing parameter (false).
#pragma once

#include "platform/webapi.h"

bool CheckListParams(QUOR::APIRequest* request, QUOR::APIResponse* response);
bool CheckExportParams(QUOR::APIRequest* request, QUOR::APIResponse* response);
bool CheckClearParams(QUOR::APIRequest* request, QUOR::APIResponse* response);
// The check-only row "get_remotearch_subfolder": always true, arguments untouched.
bool CheckAlwaysPass(QUOR::APIRequest* request, QUOR::APIResponse* response);
