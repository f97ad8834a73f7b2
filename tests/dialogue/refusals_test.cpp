// What the core makes of the replies by which servers refuse: each of them is an error of its own type.

#include "operations.hpp"
#include "scripted_peer.hpp"

#include <filesystem>
#include <gmock/gmock.h>
#include <unistd.h>

using namespace support;

TEST(Refusals, AreToldApartByTheirReplyCodes)
{
    struct row {
        const char* operation;
        const char* command;
        const char* reply;
        texts error;
    };
    const std::string local = testing::TempDir() + "refusals_test." + std::to_string(getpid());
    const auto operations = ftp_operations(std::u16string(local.begin(), local.end()));
    for (const auto& [name, command, reply, error] :
         {row{"delete_folder", "RMD", "550 no", {"FolderNotEmpty", "/old"}},
          row{"delete_folder", "RMD", "553 no", {"FTPError", "553"}},
          row{"receive_file", "RETR", "550 no", {"FileUnavailable", "f"}},
          row{"receive_file", "RETR", "553 no", {"FTPError", "553"}}}) {
        SCOPED_TRACE(std::string(name) + " " + reply);
        const auto operation = std::find_if(operations.begin(), operations.end(),
                                            [&, &name = name](const auto& each) { return each.name == name; });
        ASSERT_NE(operation, operations.end());
        scripted_peer peer;
        peer.file("f", "remote");
        core::curl_ptr connection;
        log_in(connection, scripted_peer::host_url, peer.port());
        peer.on(command, answer::reply(reply));
        const auto thrown = error_of([&] { operation->call(connection); });
        ASSERT_EQ(thrown.size(), 2U) << joined(thrown);
        EXPECT_THAT(thrown[0], testing::HasSubstr(error[0]));
        EXPECT_EQ(thrown[1], error[1]);
    }
    std::filesystem::remove(local);
}
