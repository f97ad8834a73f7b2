// A connection that is lost at every request in turn, with a server that does not replace files when it
// renames: what is on both sides afterwards. Each name holds what it held before or what it was to hold, and
// nothing is lost.

#include "client_stage.hpp"

#include <algorithm>
#include <gmock/gmock.h>

namespace fs = std::filesystem;
using namespace support;
using namespace std::literals;
using namespace testing;
using qrftp::direction;
using qrftp::url_scheme;

namespace {

/// What both sides hold, by the paths below "/home/u/" and those below the local folder.
struct sides {
    files remote;
    files local;
};
const sides before{{{"f", "source"}, {"t", "old"}, {"d", "/"}, {"d/a", "older"}, {"d/extra", "1"}},
                   {{"f", "local"}, {"long", "old"}, {"tree", "/"}, {"tree/a", "new"}, {"tree/b", "new"}}};

sides changed(const std::function<void(sides&)>& change)
{
    sides after = before;
    change(after);
    return after;
}

struct operation {
    std::string name;
    void (*call)(client_stage&);
    sides after;
};
void PrintTo(const operation& of, std::ostream* out)
{
    *out << of.name;
}

/// Taken up again without a pause, or not at all.
const qrftp::transfer_options at_once{.retries = 1};

void mirror(client_stage& t, direction way)
{
    qrftp::sync_options options;
    options.transfer = at_once;
    options.jobs = 1;
    options.remove_extra = true;
    options.transfer = at_once;
    synchronise(*t.client, t.local / "tree", "d", way, options);
}
const operation operations[] = {
    {"Put", [](client_stage& t) { t.client->send(t.local / "f", "t", at_once); },
     changed([](sides& of) { of.remote["t"] = "local"; })},
    {"Get", [](client_stage& t) { t.client->fetch("f", t.local / "long", at_once); },
     changed([](sides& of) { of.local["long"] = "source"; })},
    {"Move", [](client_stage& t) { t.client->rename("f", "t", true); }, changed([](sides& of) {
         of.remote.erase("f");
         of.remote["t"] = "source";
     })},
    {"SyncSending", [](client_stage& t) { mirror(t, direction::send); }, changed([](sides& of) {
         of.remote.erase("d/extra");
         of.remote["d/a"] = "new";
         of.remote["d/b"] = "new";
     })},
    {"SyncFetching", [](client_stage& t) { mirror(t, direction::fetch); }, changed([](sides& of) {
         of.local.erase("tree/b");
         of.local["tree/a"] = "older";
         of.local["tree/extra"] = "1";
     })},
};

using parameters = std::tuple<operation, url_scheme, bool, bool>;

class LostConnection : public TestWithParam<parameters> {
protected:
    static void prepare(client_stage& t)
    {
        files there{{"/home", "/"}, {"/home/u", "/"}};
        for (const auto& [path, content] : before.remote)
            there["/home/u/" + path] = content;
        t.keep(there, false);
        for (const auto& [path, content] : before.local)
            if (content == "/")
                fs::create_directories(t.local / path);
            else
                write_file(t.local / path, content);
        t.open();
    }
    static files remote_files(const client_stage& t)
    {
        files below;
        for (const auto& [path, content] : t.kept())
            if (path.starts_with("/home/u/"))
                below[path.substr(8)] = content;
        return below;
    }
    /// `error` is what was thrown, or empty.
    void expect_whole(const files& old, const files& wanted, files now, const std::string& error) const
    {
        for (const auto& [path, content] : old)
            EXPECT_TRUE(!holds(wanted, content) || holds(now, content)) << content << " is lost: " << error;
        for (const files* known : {&old, &wanted})
            for (const auto& [path, content] : *known)
                expect_one_of(path, old, wanted, now, error);
        const auto is_left = [&](const auto& each) {
            return !old.contains(each.first) && !wanted.contains(each.first);
        };
        for (const auto& [path, content] : now)
            EXPECT_TRUE(!is_left(std::pair(path, content)) || (!is_back_ && path.find(".qrftp-") != path.npos))
                << path << " was left: " << error;
        std::erase_if(now, is_left);
        if (error.empty()) {
            EXPECT_EQ(now, wanted);
        }
    }

    const bool is_back_ = std::get<3>(GetParam());

private:
    static bool holds(const files& all, const std::string& content)
    {
        return std::ranges::any_of(all, [&](const auto& each) { return each.second == content; });
    }
    /// Of a server that stays away, the old content may be under another name, which the error then names.
    void expect_one_of(const std::string& path, const files& old, const files& wanted, const files& now,
                       const std::string& error) const
    {
        const auto held = [&](const files& all) { return all.contains(path) ? all.at(path) : "nothing"; };
        const bool is_hidden = !is_back_ && std::ranges::any_of(now, [&](const auto& each) {
            return each.second == held(old) && (error.find(each.first) != error.npos ||
                                                error.find(qrftp::masked(each.first)) != error.npos);
        });
        EXPECT_TRUE(held(now) == held(old) || held(now) == held(wanted) || is_hidden)
            << path << ": " << held(now) << ", " << error;
    }
};

} // namespace

TEST_P(LostConnection, LeavesWhatWasThereOrWhatIsToBeThere)
{
    const auto& [of, scheme, carried_out, is_back] = GetParam();
    bool was_cut = true;
    for (int request = 1; was_cut && request < 100; ++request) {
        SCOPED_TRACE("request " + std::to_string(request));
        client_stage t({}, scheme);
        prepare(t);
        t.cut_at(request, carried_out, is_back);
        std::string error;
        try {
            of.call(t);
        } catch (const qrftp::error& thrown) {
            error = thrown.what();
        }
        was_cut = t.was_cut();
        expect_whole(before.remote, of.after.remote, remote_files(t), error);
        expect_whole(before.local, of.after.local, files_in(t.local), error);
        EXPECT_TRUE(error.empty() || was_cut) << error;
    }
    EXPECT_FALSE(was_cut);
}

std::string name_of(const TestParamInfo<parameters>& row)
{
    const auto& [of, scheme, carried_out, is_back] = row.param;
    return of.name + (scheme == url_scheme::ftp ? "Ftp" : "Sftp") + (carried_out ? "After" : "Before") +
           (is_back ? "" : "ForGood");
}
INSTANTIATE_TEST_SUITE_P(, LostConnection,
                         Combine(ValuesIn(operations), Values(url_scheme::sftp, url_scheme::ftp), Bool(),
                                 Bool()),
                         name_of);
