// Replies of the control connection, and the sizes in them.

#include "../../client/src/ftp/reply.hpp"

#include <gmock/gmock.h>

using namespace qrftp::ftp;
using namespace testing;

TEST(Reply, EndsWithTheLineThatRepeatsItsCodeBeforeABlank)
{
    const auto replies =
        parse_replies("220 hello\r\n211-Features:\r\n MLST\r\n 211 no end\r\n211-no end\r\n212 no end\r\n"
                      "211 End\r\nnoise\r\n+12 noise\r\n550\n226-cut");
    ASSERT_THAT(replies, SizeIs(4));
    EXPECT_THAT(replies[0].lines, ElementsAre("220 hello"));
    EXPECT_EQ(replies[0].text(), "hello");
    EXPECT_THAT(replies[1].lines, SizeIs(6));
    EXPECT_EQ(replies[1].text(), "End");
    EXPECT_EQ(replies[2].code, 550);
    EXPECT_EQ(replies[2].text(), "");
    EXPECT_THAT(replies[3].lines, ElementsAre("226-cut"));
}

TEST(Reply, TellsASizeOnlyInDigitsThatAFileCanHave)
{
    const auto size_in = [](const std::string& line) { return parse_size(parse_replies(line).at(0)); };
    EXPECT_EQ(size_in("213 10"), 10U);
    EXPECT_EQ(size_in("213 9223372036854775807 "), 9223372036854775807U);
    for (const char* const line : {"213 -1", "213 9223372036854775808", "213 99999999999999999999", "213 1x",
                                   "213 x 1", "213 ", "213", "250 10", "550 10"})
        EXPECT_EQ(size_in(line), std::nullopt) << line;
}
