// synchronise_folder LOCAL-FOLDER URL [CA-FILE]: brings a remote folder up to what a local one has, and removes
// there what is not here. The password is in QRFTP_PASSWORD.
#include <qrftp/client.hpp>

#include <cstdlib>
#include <iostream>

namespace {

void show(const qrftp::tree_action& step)
{
    using kind = qrftp::tree_action::kind;
    const char* const what = step.what == kind::copy          ? "sent    "
                             : step.what == kind::make_folder ? "made    "
                                                              : "removed ";
    std::cout << what << (step.path.empty() ? "." : step.path) << '\n';
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc < 3) {
        std::cerr << "synchronise_folder LOCAL-FOLDER URL [CA-FILE]\n";
        return 2;
    }
    qrftp::session_options login;
    if (const char* const password = std::getenv("QRFTP_PASSWORD")) {
        login.password = password;
    }
    if (argc > 3) {
        login.certificate_authorities = argv[3];
    }
    const qrftp::url where = qrftp::url::parse(argv[2]);
    qrftp::session remote(where, login);

    qrftp::sync_options options;
    options.transfer.keep_time = true; // otherwise copies look newer than their sources the next time
    options.exclude = {".git", "*.tmp"};
    options.remove_extra = true;
    options.keep_going = true;
    options.on_action = show;
    const qrftp::tree_result result =
        qrftp::synchronise(remote, argv[1], where.path, qrftp::direction::send, options);
    std::cout << result.bytes << " bytes sent, " << result.failures.size() << " failures\n";
    return result.failures.empty() ? 0 : 8;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
