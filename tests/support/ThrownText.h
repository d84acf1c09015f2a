// Test helper: the text of what a call throws, a plain std::string as it is and a standard
// exception by its what(); "" when the call throws nothing.
#ifndef ORVANE_TESTS_SUPPORT_THROWNTEXT_H_
#define ORVANE_TESTS_SUPPORT_THROWNTEXT_H_

#include <exception>
#include <string>

template <typename Call>
std::string thrownText(Call call) {
  try {
    call();
  } catch (const std::string& text) {
    return text;
  } catch (const std::exception& e) {
    return e.what();
  }
  return "";
}

#endif  // ORVANE_TESTS_SUPPORT_THROWNTEXT_H_
