// Configuration files of OpenSSH: any text is read or refused by InvalidOption; settings of a host's own block
// go before later ones, and a block of another host changes nothing. Text that includes itself comes to an end.
#include "fuzz.hpp"

#include <qrftp/error.hpp>
#include <sftp/ssh_config.hpp>

#include <optional>

using namespace qrftp;

static std::optional<sftp::ssh_config> parse(const std::string& text, unsigned most_includes = 0)
{
    const std::vector<sftp::ssh_config_source> sources = {{text, "f", "/"}};
    unsigned includes = 0;
    try {
        return sftp::parse_ssh_config(sources, {"host", "", "me", "/home"}, [&](const std::filesystem::path&) {
            return ++includes > most_includes ? std::vector<sftp::ssh_config_source>() : sources;
        });
    } catch (const InvalidOption&) {
        return std::nullopt;
    }
}

static void fuzz(std::string_view input)
{
    const std::string text(input);
    parse(text, 4);
    const auto plain = parse(text);
    if (!plain) {
        return;
    }
    const auto preceded = parse("Host other\nPort 1\nHost host\nPort 2\nHost *\n" + text);
    require(preceded && preceded->port == 2);
    require(preceded->user == plain->user && preceded->identity_files == plain->identity_files);
    const auto followed = parse(text + "\nHost host\nPort 3");
    require(!followed || followed->port == plain->port.value_or(3));
}
