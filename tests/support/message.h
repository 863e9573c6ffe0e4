/// A fixed-length character argument, as a host would pass it, and the status pair that comes back.
#pragma once

#include "common/types.h"

#include <gtest/gtest.h>

#include <string>

namespace tessel::testing {

/// Room of 80 characters. `text()` is what the routine left in it.
class Message
{
public:
    char* data() { return buffer_.data(); }
    CharLen length() const { return static_cast<CharLen>(buffer_.size()); }
    std::string text() const { return buffer_; }

private:
    std::string buffer_ = std::string(80, '#');
};

/// `text`, blank-padded to the room: what a message argument must hold.
inline std::string padded(std::string text)
{
    text.resize(80, ' ');
    return text;
}

/// The message that `call(flag, message, length)` leaves, without its padding; the flag must be -1 beside a text and
/// 0 beside none.
template <class Call>
std::string status_of(Call call)
{
    Message message;
    Integer flag = 77;
    call(flag, message.data(), message.length());
    std::string text = message.text();
    text.resize(text.find_last_not_of(' ') + 1);
    EXPECT_EQ(flag, text.empty() ? 0 : -1) << text;
    return text;
}

} // namespace tessel::testing
