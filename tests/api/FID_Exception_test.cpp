#include "orvane.h"

#include <gtest/gtest.h>

TEST(FIDExceptionTest, WhatReturnsTheMessageAndSurvivesCopies) {
  const FID_Exception original("Cant Load Database");
  const FID_Exception copy = original;
  EXPECT_STREQ(copy.what(), "Cant Load Database");
  EXPECT_STREQ(FID_Exception().what(), "");
  try {
    throw FID_Exception("Unknown Error");
  } catch (const std::exception& e) {  // hosts may catch the standard base
    EXPECT_STREQ(e.what(), "Unknown Error");
  }
}
