#include "../../client/src/remote_path.hpp"

#include <gtest/gtest.h>

using namespace qrftp;

TEST(RemotePath, IsResolvedWithoutTheServer)
{
    struct row {
        const char* folder;
        const char* path;
        const char* absolute;
    };
    for (const auto& [folder, path, absolute] : {row{"/", "", "/"},
                                                 {"/a", ".", "/a"},
                                                 {"/a", "b", "/a/b"},
                                                 {"/a", "/b/", "/b"},
                                                 {"/a/b", "..", "/a"},
                                                 {"/a", "../../..", "/"},
                                                 {"/a", "./b//c/.", "/a/b/c"},
                                                 {"/a", "..b/...", "/a/..b/..."},
                                                 {"/", "b ", "/b "},
                                                 {"/", "\xff/\n", "/\xff/\n"}})
        EXPECT_EQ(remote_path::absolute(folder, path), absolute) << folder << " and " << path;
}

TEST(RemotePath, HasTemporaryNames)
{
    EXPECT_NE(remote_path::temporary_name(), remote_path::temporary_name());
    EXPECT_TRUE(remote_path::is_temporary_name(remote_path::temporary_name()));
    EXPECT_TRUE(remote_path::is_part_name(".qrftp-0123456789abcdef.part"));
    EXPECT_TRUE(remote_path::is_temporary_name(remote_path::aside_name()));
    EXPECT_FALSE(remote_path::is_part_name(remote_path::aside_name()));
    for (const char* const other :
         {"", ".part", ".qrftp-.part", ".qrftp-0123456789abcde.part", ".qrftp-0123456789abcdeg.part",
          "x.qrftp-0123456789abcdef.part", ".qrftp-0123456789abcdef.part2"})
        EXPECT_FALSE(remote_path::is_temporary_name(other)) << other;
}
