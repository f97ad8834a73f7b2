#pragma once

#include "faulty_file_system.hpp"
#include "operations.hpp"
#include "scripted_peer.hpp"

#include <gtest/gtest.h>
#include <zorbel/io/common/file/MemoryFileSystem.hpp>

namespace support {

/// A connection of the core to a peer, in /home/u, and local files in memory, behind faults that a test may
/// order.
struct core_stage {
    static constexpr auto home = "ftp://127.0.0.1//home/u/";
    static constexpr auto local = u"local"; ///< holds "12345"

    explicit core_stage(std::chrono::milliseconds patience = std::chrono::seconds(5))
        : peer("/home/u", patience)
    {
        memory->put(local, "12345");
        exchange_file_system(faults);
        peer.file("f", "remote");
        for (const char* verb : {"mkdir", "rmdir", "rename", "rm"})
            peer.on(verb, answer::reply("250 done"));
    }
    core_stage(const core_stage&) = delete;
    ~core_stage() { zorbel::io::common::file::exchange_file_system(nullptr); }
    void open() { EXPECT_EQ(log_in(connection, scripted_peer::host_url, peer.port()), "/home/u"); }

    std::shared_ptr<zorbel::io::common::file::MemoryFileSystem> memory =
        std::make_shared<zorbel::io::common::file::MemoryFileSystem>();
    std::shared_ptr<FaultyFileSystem> faults = std::make_shared<FaultyFileSystem>(memory);
    scripted_peer peer;
    core::curl_ptr connection{};
};

} // namespace support
