// One extractor and one database of the library serve one thread at a time: a second thread
// inside the same object would share its working memory. A binding object carries a
// CExclusiveUse; every call holds a Claim on it for its duration, and a call that finds the
// object already claimed fails with a RuntimeError that names the class, instead of
// corrupting it. Sequential use from different threads is fine.
#ifndef ORVANE_PYTHON_SRC_CEXCLUSIVEUSE_H_
#define ORVANE_PYTHON_SRC_CEXCLUSIVEUSE_H_

#include <atomic>

class CExclusiveUse {
 public:
  // className is the Python name shown in the error ("Extractor"); a literal.
  explicit CExclusiveUse(const char* className);
  CExclusiveUse(const CExclusiveUse&) = delete;
  CExclusiveUse& operator=(const CExclusiveUse&) = delete;

  class Claim {
   public:
    // Throws std::runtime_error when another call holds the object.
    explicit Claim(CExclusiveUse& use);
    ~Claim();
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

   private:
    CExclusiveUse& use;
  };

 private:
  std::atomic<bool> busy{false};
  const char* className;
};

#endif  // ORVANE_PYTHON_SRC_CEXCLUSIVEUSE_H_
