#include <boost/exception/errinfo_errno.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>
#include <boost/exception_ptr.hpp>
#include <fl/i18n/ustring_to_utf8.hpp>
#include <foundation/core/except/Exception.hpp>
#include <gmock/gmock.h>
#include <sstream>
#include <zorbel/io/common/file/errors.hpp>

using namespace std::string_literals;
using namespace testing;
using namespace foundation::core::except;

TEST(Catalogue, HoldsExactlyTheKnownMessagesAndRendersAnyArgumentSafely)
{
    std::istringstream known(
        "io:ftp:ftp: InternalError 2 BadLogin 1 NoConnection 2 NoConnectionToStartingFolder 2 NoSuchDirectory "
        "1 FTPError 1 NotFound 1 FileUnavailable 1 DeleteFailed 1 UploadFailed 1 CouldNotCreateFolder 1 "
        "FolderNotEmpty 1 RemoveFolderFailed 1 CouldNotDetermineHomeFolder 0 CouldNotLoginToRemoteFolder 0 "
        "io:ftp:curl: InvalidCurlHandle 0 CurlHandleUnwrapFailed 0 LibraryInitializationFailure 0 "
        "CurlHandleInitializationFailure 0 io:common:file: PermissionDenied 1 NoSuchFile 1 DiskFull 1 "
        "FileError 2 fl:i18n: InvalidText 2");
    auto& catalogue = Catalogue::instance();
    catalogue.add("ZORBEL:t:k", "<{0}|{1}|{x}");
    auto sentences = catalogue.entries();
    EXPECT_EQ(sentences.extract("ZORBEL:t:k").mapped(), "<{0}|{1}|{x}");
    for (std::string component, key, count; known >> key >> count;) {
        if (key.ends_with(':')) {
            component = std::exchange(key, count);
            known >> count;
        }
        const auto sentence = sentences.extract("ZORBEL:" + component + key).mapped();
        EXPECT_EQ(std::to_string(std::count(sentence.begin(), sentence.end(), '{')), count) << key;
        EXPECT_TRUE(count != "2" || sentence.find("{1}") != std::string::npos) << key;
    }
    EXPECT_THAT(sentences, IsEmpty());
    EXPECT_EQ(catalogue.render({"ZORBEL:t", "k", {-5, "{0}"s}}), "<-5|{0}|{x}");
    EXPECT_EQ(catalogue.render({"ZORBEL:t", "k", {"\n\x1b\x7f\xc2\x9b\xff\xe2\x82z"s, u"\xD800z\u00e9\r"s}}),
              "<\\x0a\\x1b\\x7f\\x9b\\xff\\xe2\\x82z|\\ud800z\u00e9\\x0d|{x}");
    EXPECT_EQ(catalogue.render({"none", "\x1b", {7, "x"s}}), "none:\\x1b 7 x");
}

TEST(Exception, IsCaughtByEachBaseAndSharesNothingWithItsClones)
{
    boost::exception_ptr kept;
    try {
        Exception original{ZORBEL::io::common::file::NoSuchFile(u"a")};
        original << boost::errinfo_errno(1);
        throw original;
    } catch (const boost::exception&) {
        EXPECT_THROW(std::rethrow_exception(std::current_exception()), ZORBEL::io::common::file::NoSuchFile);
        kept = boost::current_exception();
    }
    const auto copy = [&] { boost::rethrow_exception(kept); };
    EXPECT_THAT(copy, ThrowsMessage<std::exception>(StartsWith("There is no local file \"a\".")));
    EXPECT_THAT(copy, Throws<IMsgIDException>(Property(&IMsgIDException::identifier, EndsWith("File"))));
    EXPECT_THAT(copy, Throws<IMsgIDException>(Property(&IMsgIDException::arguments, ElementsAre(u"a"s))));
    for (const int number : {2, 0}) {
        try {
            copy();
        } catch (boost::exception& caught) {
            EXPECT_EQ(*boost::get_error_info<boost::errinfo_errno>(caught), 1);
            caught << boost::errinfo_errno(number);
        }
    }
}

TEST(Text, ConvertsStrictlyAndNamesTheBadPlace)
{
    using namespace fl::i18n;
    EXPECT_EQ(utf8_to_ustring("\0\u00e9\u20ac\U0001F600\uFFFF"s), u"\0\u00e9\u20ac\U0001F600\uFFFF"s);
    EXPECT_EQ(ustring_to_utf8(u"\0\u00e9\u20ac\U0001F600\uFFFF"s), "\0\u00e9\u20ac\U0001F600\uFFFF"s);
    auto bad = Throws<IMsgIDException>(Property(&IMsgIDException::arguments, Contains(MessageArgument(1))));
    for (const std::u16string broken : {u"\xD83D", u"\xD83D\xD83D", u"\xD83Dz", u"\xDE00\xD83D"}) {
        EXPECT_THAT([&] { ustring_to_utf8(u"a" + broken); }, bad);
    }
    for (const std::string broken :
         {"\xed\xa0\x80", "\xc0\xaf", "\xe2\x82", "\xe2\x28\xa1", "\x80", "\xf4\x90\x80\x80"}) {
        EXPECT_THAT([&] { utf8_to_ustring("a" + broken); }, bad);
    }
}
