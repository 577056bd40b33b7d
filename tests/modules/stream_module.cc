// A web-API module for the server's tests: "QUOR.Test.Stream" version 1 with
//   stream  switches the output off and writes its own header lines and a document of
//           "size" bytes (default 4 MiB) in 64 KiB pieces, like a download;
//   echo    answers the parameters, the user name and the language it was given;
//   crash   kills its own process, as a faulty module would;
//   sleep   answers after "ms" milliseconds, as a method stuck on a slow store would.
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include "platform/webapi.h"
#include "tests/modules/module_tables.h"

namespace {

void Stream(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  response->SetEnableOutput(false);
  long long size = QUOR::WebAPIUtil::ToInt(request->GetParam("size", 4 << 20));
  printf(
      "Content-Type: text/plain\r\nContent-Disposition:attachment; filename=\"big.txt\"\r\n\r\n");
  std::string piece(65536, 'x');
  for (size_t i = 0; i < piece.size(); i += 64) piece[i] = '\n';
  for (long long written = 0; written < size; written += piece.size()) {
    size_t n = static_cast<size_t>(std::min<long long>(piece.size(), size - written));
    if (fwrite(piece.data(), 1, n, stdout) != n) return;  // the client went away
  }
}

void Echo(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  Json::Value data(Json::objectValue);
  data["params"] = request->GetParams();
  data["user"] = request->GetLoginUserName();
  data["lang"] = request->GetUILanguage();
  response->SetSuccess(data);
}

void Crash(QUOR::APIRequest*, QUOR::APIResponse*) { kill(getpid(), SIGKILL); }

void Sleep(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  usleep(static_cast<useconds_t>(QUOR::WebAPIUtil::ToInt(request->GetParam("ms", 0))) * 1000);
  response->SetSuccess(Json::Value("slept"));
}

bool RefuseNegative(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  if (QUOR::WebAPIUtil::ToInt(request->GetParam("size", 0)) >= 0) return true;
  response->SetError(120);
  return false;
}

const QUOR::APIMethodEntry kMethods[] = {
    {"QUOR.Test.Stream", 1, "stream", Stream},
    {"QUOR.Test.Stream", 1, "echo", Echo},
    {"QUOR.Test.Stream", 1, "crash", Crash},
    {"QUOR.Test.Stream", 1, "sleep", Sleep},
    {nullptr, 0, nullptr, nullptr},
};
const QUOR::APICheckEntry kChecks[] = {
    {"QUOR.Test.Stream", 1, "stream", RefuseNegative, nullptr, nullptr},
    {nullptr, 0, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

QUOR_TEST_MODULE_TABLES(kMethods, kChecks)
