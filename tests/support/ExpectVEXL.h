// Test helper: checks the three values of the VEXLException a call throws.
#ifndef ORVANE_TESTS_SUPPORT_EXPECTVEXL_H_
#define ORVANE_TESTS_SUPPORT_EXPECTVEXL_H_

#include <gtest/gtest.h>

#include <string>

#include "vexl/VEXLException.h"

// Runs f and expects a VEXLException with exactly these three values.
template <typename F>
void ExpectVEXL(F f, const std::string& message, const std::string& file, int line) {
  try {
    f();
    ADD_FAILURE() << "no VEXLException, expected \"" << message << "\"";
  } catch (const VEXLException& e) {
    EXPECT_EQ(e.m_message, message);
    EXPECT_EQ(e.m_file, file);
    EXPECT_EQ(e.m_line, line);
    EXPECT_EQ(std::string(e.what()), message);
  }
}

#endif  // ORVANE_TESTS_SUPPORT_EXPECTVEXL_H_
