#pragma once

#include "local_files.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include <gtest/gtest.h>

namespace support {

/// Real servers on loopback for as long as it lives, with what a client must know of them by name (see
/// servers.sh).
class servers {
public:
    explicit servers(const std::string& names)
    {
        std::filesystem::create_directory(path());
        std::filesystem::permissions(folder_,
                                     std::filesystem::perms(0711)); // the servers are another user for root
        status_ = std::system((script + " start " + path() + " " + names).c_str());
        std::ifstream env(path() + "/env");
        for (std::string line; std::getline(env, line);)
            env_[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    }
    servers(const servers&) = delete;
    ~servers() { EXPECT_EQ(std::system((script + " stop " + path()).c_str()), 0); }

    /// Whether all serve. If a server is not installed: a skip at home, a failure where CI is set.
    bool serve() const { return status_ == 0; }
    bool missing() const { return WEXITSTATUS(status_) == 77 && std::getenv("CI") == nullptr; }
    const std::string& operator[](const std::string& name) const { return env_.at(name); }
    long port(const std::string& name) const { return std::stol(env_.at(name)); }
    std::string path() const { return folder_ / "servers"; }
    /// Login with user name and password, where nobody looks at keys and certificates.
    template <class Options>
    Options login() const
    {
        Options options;
        options.user = env_.at("USER");
        options.password = env_.at("PASSWORD");
        options.tls = decltype(options.tls)::none;
        options.host_keys = decltype(options.host_keys)::off;
        options.ssh_config.only = "";
        options.use_agent = false;
        return options;
    }

private:
    static inline const std::string script = QRFTP_SOURCE_DIR "/packaging/servers.sh";
    temporary_folder folder_;
    std::map<std::string, std::string> env_;
    int status_ = 1;
};

} // namespace support
