// AudioSignException: the failure of the signature objects. It carries a pointer to one of the
// fixed texts of SignatureMessages.h, which what() returns.
#ifndef ORVANE_SIGNATURE_AUDIOSIGNEXCEPTION_H_
#define ORVANE_SIGNATURE_AUDIOSIGNEXCEPTION_H_

#include <exception>

class AudioSignException : public std::exception {
 public:
  // REQUIRES: message is a static text.
  explicit AudioSignException(const char* message) : message(message) {}
  const char* what() const noexcept override { return message; }

 private:
  const char* message;
};

#endif  // ORVANE_SIGNATURE_AUDIOSIGNEXCEPTION_H_
