// The page's static files, served from the UI directory and never from outside it.
#pragma once

#include <string>

#include "server/http/exchange.h"

// Answers GET or HEAD of target ("/" is "/index.html") from uiDir: 200 with the file and its
// content type, or 404 when the decoded path has a ".." segment, a NUL or a backslash, names
// no regular file, or resolves (through links) outside uiDir.
void ServeStaticFile(const std::string& uiDir, const HttpRequest& request, Exchange* exchange);

// The content type of a file name by its extension ("application/octet-stream" if unknown).
std::string ContentTypeOf(const std::string& path);

// The Content-Security-Policy of the page: its own scripts, styles, images and calls only.
extern const char kContentSecurityPolicy[];
