/* SPDX-License-Identifier: MIT */
/* vos.hpp: results, time-outs, views of bytes and what may be sent. */
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <vector>

#include "vos.hpp"

using namespace std::chrono_literals;
using vos::timeout;

namespace {

template <class T>
using Max = std::numeric_limits<T>;

TEST(CppResult, AValueOrTheErrorWithItsErrno) {
    const vos::result<int> good = 5;
    const vos::result<int> bad = vos::error{VOS_ERROR, ENOENT};
    EXPECT_TRUE(good);
    EXPECT_EQ(good.value(), 5);
    EXPECT_EQ(good.code(), VOS_OK);
    EXPECT_FALSE(bad);
    EXPECT_EQ(bad.code(), VOS_ERROR);
    EXPECT_EQ(bad.error_number(), ENOENT);
    EXPECT_EQ(bad.value_or(7), 7);
    EXPECT_FALSE(bad.timed_out());
    EXPECT_TRUE(vos::result<void>{vos::error{VOS_ERR_TIMEOUT}}.timed_out());
}

TEST(CppResult, ValueOfAFailureThrowsTheCodeAndTheTextOfErrno) {
    const vos::result<int> bad = vos::error{VOS_ERROR, ENOENT};
    try {
        static_cast<void>(bad.value());
        FAIL() << "nothing was thrown";
    } catch (const std::system_error &thrown) {
        EXPECT_EQ(thrown.code(), (std::error_code{VOS_ERROR, vos::category()}));
        EXPECT_NE(std::string{thrown.what()}.find("No such file"), std::string::npos) << thrown.what();
    }
}

TEST(CppResult, ConditionsOfTheStandardMatch) {
    EXPECT_EQ(vos::error{VOS_ERR_TIMEOUT}.error_code(), std::errc::timed_out);
    EXPECT_EQ(vos::error{VOS_ERR_PARAM}.error_code(), std::errc::invalid_argument);
    EXPECT_EQ(vos::error{VOS_ERR_TOO_LONG}.error_code(), std::errc::message_size);
    EXPECT_NE(vos::error{VOS_ERROR}.error_code(), std::errc::timed_out);
}

TEST(CppResult, EveryCodeHasWordsOfItsOwn) {
    std::set<std::string> all;
    for (int32_t code = VOS_ERR_PACKAGE_LENGTH; code <= VOS_OK; ++code)
        if (code != -11) all.insert(vos::words(code));
    EXPECT_EQ(all.size(), 16u);
    EXPECT_EQ(all.count("unknown code"), 0u);
    EXPECT_STREQ(vos::words(-11), "unknown code");
    EXPECT_EQ(vos::category().message(VOS_ERR_TIMEOUT), vos::words(VOS_ERR_TIMEOUT));
}

TEST(CppTimeout, ZeroAndForEverMeanTheSameForEveryKindOfCall) {
    EXPECT_EQ(vos::no_wait.receive_ms(), 0u);
    EXPECT_EQ(vos::forever.receive_ms(), VOS_WAIT_FOREVER);
    EXPECT_EQ(vos::forever.send_ms(), 0u);
    EXPECT_EQ(vos::no_wait.send_ms(), 1u);
    EXPECT_EQ(timeout{0s}.send_ms(), 1u);
    EXPECT_EQ(timeout{-5s}.receive_ms(), 0u);
    EXPECT_EQ(timeout{std::chrono::duration<double>{std::nan("")}}.receive_ms(), 0u);
    EXPECT_TRUE(timeout{0s}.is_no_wait());
    EXPECT_FALSE(timeout{std::chrono::hours::max()}.is_forever());
}

TEST(CppTimeout, IsRoundedUp) {
    EXPECT_EQ(timeout{1ns}.receive_ms(), 1u);
    EXPECT_EQ(timeout{1ns}.us(), 1);
    EXPECT_EQ(timeout{999us}.send_ms(), 1u);
    EXPECT_EQ(timeout{1000us}.send_ms(), 1u);
    EXPECT_EQ(timeout{1001us}.send_ms(), 2u);
    EXPECT_EQ(timeout{std::chrono::duration<double>{0.0000001}}.receive_ms(), 1u);
    EXPECT_EQ(vos::interval{1500us}.ms(), 2u);
    EXPECT_EQ(vos::interval{-1s}.ms(), 0u);
}

TEST(CppTimeout, StopsAtTheLimit) {
    const std::chrono::milliseconds last{0xFFFFFFFF};
    EXPECT_EQ(timeout{last}.send_ms(), 0xFFFFFFFFu);
    EXPECT_EQ(timeout{last + 1us}.send_ms(), 0xFFFFFFFFu);
    EXPECT_EQ(timeout{last - 1ms}.receive_ms(), 0xFFFFFFFEu);
    EXPECT_EQ(timeout{last}.receive_ms(), 0xFFFFFFFEu) << "0xFFFFFFFF would be for ever";
    EXPECT_EQ(timeout{std::chrono::hours::max()}.send_ms(), 0xFFFFFFFFu);
    EXPECT_EQ(timeout{std::chrono::nanoseconds::max()}.send_ms(), 0xFFFFFFFFu);
    EXPECT_EQ(timeout{std::chrono::seconds::min()}.receive_ms(), 0u);
    EXPECT_EQ((timeout{std::chrono::duration<double>{1e300}}.send_ms()), 0xFFFFFFFFu);
    EXPECT_EQ((timeout{std::chrono::duration<uint64_t>{Max<uint64_t>::max()}}.send_ms()), 0xFFFFFFFFu);
    EXPECT_EQ((timeout{std::chrono::duration<int8_t, std::nano>{127}}.us()), 1);
    EXPECT_EQ(vos::interval{std::chrono::hours::max()}.ms(), 0xFFFFFFFEu);
}

/* The times that a take asks the C call for, when each ends in a time-out. */
std::vector<uint32_t> parts(timeout wait) {
    std::vector<uint32_t> asked;
    EXPECT_EQ(vos::detail::take_for(wait,
                                    [&](uint32_t us) {
                                        asked.push_back(us);
                                        return VOS_ERR_TIMEOUT;
                                    }),
              VOS_ERR_TIMEOUT);
    return asked;
}

TEST(CppTimeout, ATakeWaitsAgainWhereTheCCallIsTooShort) {
    EXPECT_EQ(parts(0s), std::vector<uint32_t>{0});
    EXPECT_EQ(parts(1ns), std::vector<uint32_t>{1});
    EXPECT_EQ(parts(vos::forever), std::vector<uint32_t>{VOS_WAIT_FOREVER});
    EXPECT_EQ(parts(2147483647us), std::vector<uint32_t>{2147483647});
    EXPECT_EQ(parts(2147483648us), (std::vector<uint32_t>{2147483647, 1}));
    EXPECT_EQ(parts(2h), (std::vector<uint32_t>{2147483647, 2147483647, 2147483647, 757549059}));
}

struct Record {
    int32_t a;
    int32_t b;
};

TEST(CppContent, TextHasNoNulAndARecordIsItsBytes) {
    const char unterminated[3] = {'a', 'b', 'c'};
    const std::vector<int32_t> numbers{1, 2, 3};
    EXPECT_EQ(vos::content{"hello"}.size(), 5u);
    EXPECT_EQ(vos::content{unterminated}.size(), 3u);
    EXPECT_EQ(vos::content{std::string{"abc"}}.size(), 3u);
    EXPECT_EQ(vos::content{std::string_view{}}.size(), 0u);
    EXPECT_NE(vos::content{std::string_view{}}.data(), nullptr);
    EXPECT_EQ((vos::content{Record{1, 2}}.size()), 8u);
    EXPECT_EQ(vos::content{numbers}.size(), 12u);
    EXPECT_EQ(vos::content{numbers}.data(), numbers.data());
    EXPECT_EQ(vos::content{vos::text<64>{"x"}}.size(), 64u);
    EXPECT_EQ((vos::content{vos::bytes{"abc", 2}}.size()), 2u);
    const uint32_t code = 5;
    EXPECT_EQ(vos::content{code}.size(), 4u);
}

TEST(CppText, CutsFillsAndNeedsNoNul) {
    vos::text<4> text{"abcdef"};
    EXPECT_EQ(text, "abc");
    text = "x";
    EXPECT_EQ(std::string(text.raw(), 4), std::string("x\0\0\0", 4));
    text.assign(text.view());
    EXPECT_EQ(text, "x");
    memcpy(text.raw(), "full", 4); /* as it may come from outside */
    EXPECT_EQ(text, "full");
    EXPECT_STREQ(text.c_str(), "ful");
    const char unterminated[3] = {'a', 'b', 'c'};
    EXPECT_EQ(vos::text<8>{unterminated}, "abc");
    text = std::string_view{};
    EXPECT_TRUE(text.empty());
}

TEST(CppBytes, AreARecordOnlyInItsOwnSize) {
    const Record record{1, 2};
    EXPECT_EQ((vos::bytes{&record, 8}.as<Record>().value().b), 2);
    EXPECT_EQ((vos::bytes{&record, 7}.as<Record>().code()), VOS_ERR_PARAM);
    EXPECT_EQ((vos::bytes{&record, 9}.as<Record>().code()), VOS_ERR_PARAM);
    EXPECT_EQ(vos::bytes{}.text(), "");
    EXPECT_EQ((vos::bytes{"ab\0cd", 5}.text()), "ab");
    EXPECT_EQ((vos::bytes{"ab\0cd", 5}.chars().size()), 5u);
    EXPECT_EQ((vos::bytes{"abc", 2}.text()), "ab");
}

}  // namespace
