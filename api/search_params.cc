// Reading the shared search filters from a request.
#include "api/search_params.h"

using QUOR::WebAPIUtil::ToInt;
using QUOR::WebAPIUtil::ToText;

std::string ReadSearchParams(const QUOR::APIRequest& request, LogSearch* search) {
  std::string target = ToText(request.GetParam("target", "LOCAL"));
  search->logtype = ToText(request.GetParam("logtype", "system"));
  search->offset = ToInt(request.GetParam("offset", "0"));
  search->sort = ToText(request.GetParam("sort", "time"));
  search->ascending = false;
  search->level = ToText(request.GetParam("level", "info,warning,err"));
  search->date_from = ToText(request.GetParam("date_from", "0"));
  search->date_to = ToText(request.GetParam("date_to", "0"));
  search->keyword = ToText(request.GetParam("keyword", ""));
  search->hostname = ToText(request.GetParam("hostname", ""));
  search->program = ToText(request.GetParam("program", ""));
  search->category = ToText(request.GetParam("category", ""));
  return target;
}
