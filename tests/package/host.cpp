// A host that knows only the installed header and library: an exception thrown from the
// library's exported class is caught through its standard base.
#include <orvane.h>

#include <cstring>

int main() {
  try {
    throw FID_Exception("installed");
  } catch (const std::exception& e) {
    return std::strcmp(e.what(), "installed") == 0 ? 0 : 1;
  }
}
