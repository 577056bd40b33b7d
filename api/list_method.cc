// The list method (served in a later step; answers "method not available" until then).
#include "api/methods.h"

void ListMethod(QUOR::APIRequest*, QUOR::APIResponse* response) { response->SetError(103); }
