// The handlers of the method table.
#pragma once

#include "platform/webapi.h"

void ListMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
void ExportMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
void ClearMethod(QUOR::APIRequest* request, QUOR::APIResponse* response);
