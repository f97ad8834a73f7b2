#include "faulty_file_system.hpp"
#include "local_files.hpp"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbel/io/common/file/MemoryFileSystem.hpp>
#include <zorbel/io/common/file/errors.hpp>

using namespace zorbel::io::common::file;
using support::FaultyFileSystem;
using namespace ZORBEL::io::common::file;
using namespace std::string_literals;

static void check_round_trip(const fl::ustring& path)
{
    const File out = make_writeable_file(path), copy = out;
    EXPECT_EQ(write(out, "abc", 3), Count(3L));
    EXPECT_EQ(write(copy, "\0x", 2), Count(2L));
    EXPECT_FALSE(close(out) || close(copy) || close(File()));
    EXPECT_THROW(handle_exception(std::get<1>(write(copy, "x", 1)), copy, {}), FileError);
    EXPECT_EQ(make_vfs_file(path).getAttributes().getSize(), 5U);
    std::string buffer(7, '?');
    const File in = make_readable_file(path);
    EXPECT_EQ(read(in, buffer.data(), 7), Count(5L));
    EXPECT_EQ(read(in, buffer.data(), 7), Count(-1L));
    EXPECT_EQ(buffer, "abc\0x??"s);
    EXPECT_EQ(close(make_writeable_file(path)), nullptr);
    EXPECT_EQ(make_vfs_file(path).getAttributes().getSize(), 0U);
}

TEST(LocalFile, IsNotTheEndOfTheProgramWhereItIsAPipeThatNobodyReads)
{
    const support::temporary_folder folder;
    ASSERT_EQ(::mkfifo((folder / "p").c_str(), 0600), 0);
    const int reader = ::open((folder / "p").c_str(), O_RDONLY | O_NONBLOCK);
    const auto pipe = open_folder(folder)->open_file("p", Folder::Open::append);
    pipe->write(0, "read");
    ::close(reader);
    EXPECT_THROW(pipe->write(0, "unread"), std::filesystem::filesystem_error);
}

TEST(LocalFile, IsWrittenReadAndTellsItsFailuresApartWhereverItLives)
{
    const support::temporary_folder folder;
    const std::filesystem::path root = folder / u"\u00e9";
    std::filesystem::create_directories(root);
    const auto plain = (root / "plain").u16string();
    check_round_trip(plain);
    // The kernel's settings obey their permissions for root too.
    EXPECT_THROW(make_writeable_file(u"/proc/sys/kernel/osrelease"), PermissionDenied);
    for (const auto open : {make_readable_file, make_writeable_file}) {
        EXPECT_THROW(open(root.u16string()), FileError);
        EXPECT_THROW(open((root / "no/such").u16string()), NoSuchFile);
        EXPECT_THROW(open(plain + u"\0x"s), FileError);
        EXPECT_THROW(open(plain + char16_t{0xD800}), FileError);
    }
    const auto full = std::get<1>(write(make_writeable_file(u"/dev/full"), "", 1));
    EXPECT_THROW(handle_exception(full, {}, {}), DiskFull);
    std::filesystem::resize_file(root / "plain", 5ULL << 30U);
    EXPECT_EQ(make_vfs_file(plain).getAttributes().getSize(), 5ULL << 30U);
    // From here on in memory, and with writes that are short on order.
    const auto faulty = std::make_shared<FaultyFileSystem>(std::make_shared<MemoryFileSystem>());
    const auto earlier = exchange_file_system(faulty);
    check_round_trip(u"f");
    faulty->fail(FaultyFileSystem::Call::write, 1, nullptr);
    EXPECT_EQ(write(make_writeable_file(u"f"), "abcd", 4), Count(2L));
    EXPECT_THROW(make_readable_file(u"missing"), NoSuchFile);
    exchange_file_system(earlier);
}
