#ifndef ZYL_TESTS_EXPECTFATAL_H
#define ZYL_TESTS_EXPECTFATAL_H

#include <gmock/gmock.h>

#include <string>

/// Expects `statement` to end the process through a fatal check that stands in `source` and reads exactly
/// `message`.
#define EXPECT_FATAL(statement, message, source) \
    EXPECT_DEATH(statement,                      \
                 testing::HasSubstr("AssertionFailed:" + std::string(message) + " (" + (source) + ":"))

#endif
