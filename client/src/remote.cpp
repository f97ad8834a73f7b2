#include "remote.hpp"

#include "names.hpp"

#include <utility>

namespace qrftp {

std::unique_ptr<remote> remote::open(url location, options how)
{
    auto opened = std::make_unique<engine>(std::move(location), std::move(how));
    return opened->location().sftp ? make_sftp_remote(std::move(opened)) : make_ftp_remote(std::move(opened));
}

remote::remote(std::unique_ptr<engine> opened) : folder(opened->login_folder()), engine_(std::move(opened))
{
}

remote::~remote() = default;

bool remote::is_folder(const std::string& path)
{
    const auto found = find(path);
    return found && (found->kind == entry_kind::folder || (found->kind == entry_kind::link && !enter(path)));
}

outcome remote::run(request wanted)
{
    wanted.cancellable = !cleaning_up_;
    return engine_->run(wanted);
}

void remote::feed_listing(request& wanted, listing_parser& parser, const std::function<void()>& restart)
{
    wanted.take = [&parser](std::string_view bytes) { parser.feed(bytes); };
    if (restart) {
        wanted.restart = [&parser, &restart] {
            parser.restart();
            restart();
        };
    }
}

refusal remote::fetch(const std::string& path, request how)
{
    how.path = path;
    const outcome result = run(how);
    return result.done() ? refusal() : result.said();
}

std::optional<entry> remote::find_in_parent(const std::string& path, bool* listed)
{
    const std::string name = names::last(path);
    if (path == "/") {
        return entry{.name = name, .kind = entry_kind::folder};
    }
    std::optional<entry> result;
    const auto look = [&] {
        listing_parser parser(format(), [&](entry&& found) {
            if (found.name == name) {
                result = std::move(found);
            }
        });
        return list(names::parent(path), parser, [&] { result.reset(); });
    };
    const listing_format before = format();
    refusal refused = look();
    if (refused && format() != before) {
        refused = look();
    }
    if (listed != nullptr) {
        *listed = !refused;
    }
    return result;
}

} // namespace qrftp
