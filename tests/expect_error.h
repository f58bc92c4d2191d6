// Expecting one of our errors: its category, and a part of its message.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "record/error.h"

// Expects `statement` to throw mrpcalc::Error of `expected_category` whose message
// contains `part` ("" for any).
#define EXPECT_ERROR(statement, expected_category, part)                                        \
  do {                                                                                 \
    try {                                                                              \
      statement;                                                                       \
      ADD_FAILURE() << "no error from " #statement;                                    \
    } catch (const ::mrpcalc::Error& e_) {                                             \
      EXPECT_EQ(e_.category(), expected_category) << e_.what();                        \
      EXPECT_NE(std::string(e_.what()).find(part), std::string::npos) << e_.what();     \
    }                                                                                  \
  } while (0)
