/// A fixed-length character argument with canaries around it, as a host would pass it.
#pragma once

#include "common/types.h"

#include <gtest/gtest.h>

#include <string>

namespace tessel::testing {

/// Room of `length` characters between two runs of sentinels. `text()` is what the routine left in the room.
class Message
{
public:
    explicit Message(std::size_t length = 80) : buffer_(length + 2 * kMargin, kSentinel), length_(length) {}

    char* data() { return buffer_.data() + kMargin; }
    CharLen length() const { return static_cast<CharLen>(length_); }
    std::string text() const { return buffer_.substr(kMargin, length_); }
    bool untouched() const { return buffer_ == std::string(buffer_.size(), kSentinel); }
    bool margins_intact() const
    {
        const std::string margin(kMargin, kSentinel);
        return buffer_.substr(0, kMargin) == margin && buffer_.substr(kMargin + length_) == margin;
    }

private:
    static constexpr std::size_t kMargin = 16;
    static constexpr char kSentinel = '#';
    std::string buffer_;
    std::size_t length_;
};

/// `text`, blank-padded or cut to `length`: what a message argument must hold.
inline std::string padded(std::string text, std::size_t length = 80)
{
    text.resize(length, ' ');
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

/// Runs `call(flag, message, length)` with rooms of several lengths, none included, and checks that each holds the
/// text, cut or padded, that the flag is right and that nothing around the room is touched.
template <class Call>
void expect_status(Integer flag, const std::string& text, Call call)
{
    for (const std::size_t length : {std::size_t{0}, std::size_t{1}, text.size(), std::size_t{120}}) {
        Message message(length);
        Integer error_flag = 77;
        call(error_flag, message.data(), message.length());
        EXPECT_EQ(error_flag, flag) << "length " << length;
        EXPECT_EQ(message.text(), padded(text, length));
        EXPECT_TRUE(message.margins_intact()) << "length " << length;
    }
    Message message(8);
    Integer error_flag = 77;
    call(error_flag, message.data(), -5);
    EXPECT_EQ(error_flag, flag);
    EXPECT_TRUE(message.untouched()) << "a negative length writes nothing";
}

} // namespace tessel::testing
