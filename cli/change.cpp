#include "change.hpp"

#include "json.hpp"
#include "output.hpp"

#include <qrftp/trace.hpp>

#include <algorithm>

namespace qrftp::cli {

void carry_out(const change& what, const settings& options, const std::function<void()>& act)
{
    if (!options.dry_run) {
        act();
    }
    if (options.json || options.dry_run || options.verbose > 0) {
        print_change(what, options);
    }
    flush_output();
}

void print_change(const change& what, const settings& options)
{
    if (options.json) {
        json object{{"action", what.action}};
        add_bytes(object, "path", what.path);
        add_bytes(object, what.detail_key, what.detail);
        if (options.dry_run) {
            object["dry_run"] = true;
        }
        print_json(object);
        return;
    }
    std::string words = what.action;
    std::replace(words.begin(), words.end(), '_', ' ');
    print_line(words + ' ' + escape(what.path) + (what.detail.empty() ? "" : " to " + escape(what.detail)));
}

} // namespace qrftp::cli
