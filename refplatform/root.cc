// Resolution of fixed platform paths under the appliance root (QUOR_ROOT).
#include "platform/root.h"

#include <stdlib.h>

std::string QuorRoot() {
  const char* root = getenv("QUOR_ROOT");
  if (root == nullptr || root[0] == '\0') return "/";
  return root;
}

std::string QuorResolvePath(const std::string& fixedPath) {
  std::string root = QuorRoot();
  while (root.size() > 1 && root.back() == '/') root.pop_back();
  if (root == "/") return fixedPath;
  if (fixedPath.compare(0, root.size(), root) == 0 &&
      (fixedPath.size() == root.size() || fixedPath[root.size()] == '/')) {
    return fixedPath;
  }
  if (!fixedPath.empty() && fixedPath[0] == '/') return root + fixedPath;
  return root + "/" + fixedPath;
}
