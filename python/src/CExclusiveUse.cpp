#include "CExclusiveUse.h"

#include <stdexcept>
#include <string>

CExclusiveUse::CExclusiveUse(const char* className) : className(className) {}

CExclusiveUse::Claim::Claim(CExclusiveUse& use) : use(use) {
  if (use.busy.exchange(true, std::memory_order_acquire)) {
    const std::string name(use.className);
    throw std::runtime_error("orvane." + name + " is in use by another thread: one " + name +
                             " serves one thread at a time; give each thread its own " + name);
  }
}

CExclusiveUse::Claim::~Claim() { use.busy.store(false, std::memory_order_release); }
