/// The expectation that a call ends the process.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

/// The statement ends the process with a failure status, and the error stream holds the text and a newline, no more.
#define EXPECT_STOP(statement, text) \
    EXPECT_EXIT(statement, ::testing::ExitedWithCode(EXIT_FAILURE), ::testing::Eq(std::string(text) + "\n"))
