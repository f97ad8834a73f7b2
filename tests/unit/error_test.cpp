#include <gmock/gmock.h>
#include <qrftp/error.hpp>
#include <qrftp/trace.hpp>

using namespace qrftp;
using namespace testing;

TEST(Error, IsCaughtByItsClassAndByItsRoot)
{
    const auto thrown = [] { throw NotFound("/a\n", {550, "no \x1b[1m"}); };
    EXPECT_THROW(thrown(), NotFound);
    EXPECT_THROW(thrown(), error);
    EXPECT_THAT(thrown, ThrowsMessage<std::exception>("There is no \"/a\\x0a\" on the server (no \\x1b[1m)."));
    try {
        thrown();
    } catch (const error& caught) {
        NotFound source("f");
        const NotFound moved = std::move(source);
        EXPECT_STREQ(source.what(), moved.what());
        const error copy = caught;
        EXPECT_EQ(copy.cause(), error_cause::not_found);
        EXPECT_EQ(copy.name(), "NotFound");
        EXPECT_EQ(copy.path(), "/a\n");
        EXPECT_EQ(copy.reply_code(), 550);
        EXPECT_EQ(copy.server_message(), "no \x1b[1m");
        EXPECT_EQ(dynamic_cast<const NotEmpty*>(&caught), nullptr);
    }
}

TEST(Error, FillsItsSentenceOnceAndHidesSecrets)
{
    EXPECT_STREQ(CannotResume("{1}", "{2} {x}").what(),
                 "\"{1}\" cannot be completed: {2} {x}. Nothing was changed.");
    EXPECT_STREQ(ConnectionLost("f", {0, "reset"}).what(), R"(The connection broke during "f" (reset).)");
    EXPECT_STREQ(ConnectionLost("f", "nothing was kept").what(),
                 R"(The connection broke while fetching "f"; nothing was kept. Run it again.)");
    mask_secret("hush-hush");
    EXPECT_STREQ(IsFolder("d", {550, "hush-hush?"}).what(), "\"d\" is a folder (****?).");
    EXPECT_EQ(IsFolder("d", {550, "hush-hush?"}).server_message(), "****?");
    EXPECT_STREQ(IsFolder("hush-hush", {0, "our words: hush-hush"}).what(),
                 "\"hush-hush\" is a folder (our words: hush-hush).");
}

TEST(Error, OfLocalFilesSaysWhatTheSystemSaid)
{
    const auto code = std::make_error_code(std::errc::no_space_on_device);
    const LocalFileError plain("/f", code);
    EXPECT_EQ(plain.code(), std::errc::no_space_on_device);
    EXPECT_THAT(plain.what(), AllOf(HasSubstr("\"/f\""), HasSubstr(code.message())));
    EXPECT_THAT(LocalFileError("/f", code, "it is locked").what(), HasSubstr("it is locked"));
    EXPECT_STREQ(LocalFileError::missing_folder("d").what(), R"(There is no local folder "d".)");
}
