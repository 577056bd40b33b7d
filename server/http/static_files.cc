// The page's static files.
#include "server/http/static_files.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "server/http/form_fields.h"

namespace http = boost::beast::http;

const char kContentSecurityPolicy[] =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "font-src 'self'; connect-src 'self'; frame-src 'self'; form-action 'self'; base-uri 'none'; "
    "frame-ancestors 'none'";

namespace {

bool HasDotDotSegment(const std::string& path) {
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    if (path.compare(start, end - start, "..") == 0 && end - start == 2) return true;
    start = end + 1;
  }
  return false;
}

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

}  // namespace

std::string ContentTypeOf(const std::string& path) {
  static const struct {
    const char* extension;
    const char* type;
  } kTypes[] = {
      {".html", "text/html; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"},
      {".mjs", "text/javascript; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},
      {".json", "application/json; charset=utf-8"},
      {".svg", "image/svg+xml"},
      {".png", "image/png"},
      {".ico", "image/x-icon"},
      {".woff2", "font/woff2"},
      {".txt", "text/plain; charset=utf-8"},
      {".map", "application/json; charset=utf-8"},
  };
  for (const auto& entry : kTypes) {
    std::string extension = entry.extension;
    if (path.size() > extension.size() &&
        path.compare(path.size() - extension.size(), extension.size(), extension) == 0) {
      return entry.type;
    }
  }
  return "application/octet-stream";
}

void ServeStaticFile(const std::string& uiDir, const HttpRequest& request, Exchange* exchange) {
  std::string target(request.target());
  std::string path = target.substr(0, target.find('?'));
  std::string decoded;
  bool clean = PercentDecode(path, false, &decoded) && !decoded.empty() && decoded[0] == '/' &&
               decoded.find('\0') == std::string::npos && decoded.find('\\') == std::string::npos &&
               !HasDotDotSegment(decoded);
  if (clean && decoded.back() == '/') decoded += "index.html";
  std::string root = RealPath(uiDir);
  std::string file = clean && !root.empty() ? RealPath(root + decoded) : "";
  struct stat info;
  bool inside = !file.empty() && file.compare(0, root.size() + 1, root + "/") == 0 &&
                stat(file.c_str(), &info) == 0 && S_ISREG(info.st_mode);
  std::ifstream in;
  if (inside) in.open(file, std::ios::binary);
  if (!inside || !in.is_open()) {
    AnswerText(exchange, 404, "Not found\n");
    return;
  }
  std::ostringstream content;
  content << in.rdbuf();
  HttpResponse& response = exchange->response;
  response.result(http::status::ok);
  response.set(http::field::content_type, ContentTypeOf(file));
  response.set(http::field::cache_control, "no-cache");
  response.set("Content-Security-Policy", kContentSecurityPolicy);
  response.set("X-Content-Type-Options", "nosniff");
  response.set("Referrer-Policy", "no-referrer");
  response.body() = content.str();
  response.prepare_payload();
  if (request.method() == http::verb::head) response.body().clear();
}
