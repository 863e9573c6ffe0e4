/// The status pair of a call with a fixed-length character argument, as a host would pass it.
#pragma once

#include "common/types.h"

#include <gtest/gtest.h>

#include <string>

namespace tessel::testing {

/// The message that `call(flag, message, length)` leaves, without its padding; the flag must be -1 beside a text and
/// 0 beside none.
template <class Call>
std::string status_of(Call call)
{
    std::string text(80, '#');
    Integer flag = 77;
    call(flag, text.data(), static_cast<CharLen>(text.size()));
    text.resize(text.find_last_not_of(' ') + 1);
    EXPECT_EQ(flag, text.empty() ? 0 : -1) << text;
    return text;
}

} // namespace tessel::testing
