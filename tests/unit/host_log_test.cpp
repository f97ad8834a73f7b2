#include <foundation/log/sink.hpp>
#include <gtest/gtest.h>
#include <thread>
#include <utility>

using namespace foundation::log;

struct Log : testing::Test {
    void keep(const entry& e) { texts.emplace_back(e.text); }
    void SetUp() override { set_entry_handler(std::bind_front(&Log::keep, this)); }
    void TearDown() override { set_entry_handler({}); }
    basic_diagnostic_logger logger{"here"};
    std::vector<std::string> texts;
};

TEST_F(Log, WritesWhatIsSwitchedOnWholeWithEveryAttributeAndOutlivesTheHandler)
{
    EXPECT_FALSE(logger.is_enabled(~0U));
    logger.enable_levels(4 | 32);
    EXPECT_TRUE(logger.is_enabled(32) && !logger.is_enabled(8));
    basic_diagnostic_logger::enable_core(false);
    EXPECT_FALSE(logger.is_enabled(32) || (record(logger, 32).stream() << "lost"));
    basic_diagnostic_logger::enable_core(true);
    EXPECT_THROW(record(logger, 4).stream() << "half" << (throw 1, 2), int);
    logger.raise_nesting_depth();
    std::thread([&] { EXPECT_EQ(logger.nesting_depth(), 0U); }).join();
    EXPECT_EQ(basic_diagnostic_logger("other").nesting_depth(), 0U);
    set_entry_handler([&](const entry& e) {
        EXPECT_EQ(std::tuple(e.level, e.channel, e.nesting_depth), std::tuple(8U, "here", 1U));
        EXPECT_TRUE(e.file.ends_with("host_log_test.cpp") && e.line > 30);
        record(logger, 8).stream() << "written by the handler";
        throw texts.emplace_back(e.text);
    });
    record(logger, 8).stream() << std::hex << 255;
    EXPECT_EQ(texts, std::vector<std::string>{"ff"});
}

TEST_F(Log, MasksNamedSecretsAndWhatLibcurlSent)
{
    for (const char* secret : {"tiger", "tigerlily", "", "two\r\nlines"}) {
        mask_secret(secret);
    }
    const std::pair<const char*, const char*> rows[] = {
        {"[HEADER OUT] PASS secret word", "[HEADER OUT] PASS ****"},
        {"[HEADER OUT] acct x", "[HEADER OUT] acct ****"},
        {"[HEADER OUT] CONNECT h\r\nproxy-authorization: Basic eA==\r\nHost: h\r\n",
         "[HEADER OUT] CONNECT h\r\nproxy-authorization: ****\r\nHost: h\r\n"},
        {"[DATA IN] PASS notes.txt", "[DATA IN] PASS notes.txt"},
        {"Listing contents: a\nPASS notes.txt\n", "Listing contents: a\nPASS notes.txt\n"},
        {"a tigerlily, a tiger, two\r\nlines", "a ****, a ****, ****"},
    };
    for (const bool on : {true, false, true}) {
        enable_masking(on);
        for (const auto& [text, shown] : rows) {
            record(logger, 4).stream() << text;
            EXPECT_EQ(texts.back(), on ? shown : text);
            EXPECT_EQ(masked(text), shown);
        }
    }
}

TEST_F(Log, PrintsOneSafeLineToStandardErrorOnly)
{
    set_entry_handler({});
    logger.raise_nesting_depth();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    record(logger, 4).stream() << "one\r\ntwo\x1b[2J\r\n";
    const auto printed = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    EXPECT_EQ(printed, "detail  here:   one\\x0d\\x0atwo\\x1b[2J\n");
}
