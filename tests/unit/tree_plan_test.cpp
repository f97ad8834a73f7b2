#include "../../client/src/tree/plan.hpp"

#include <gmock/gmock.h>

using namespace qrftp;
using namespace testing;
using namespace std::chrono_literals;
using std::chrono::sys_seconds;

namespace {

using steps = std::vector<std::string>;
using nodes = std::map<std::string, tree_node>;

const tree_node folder{.kind = entry_kind::folder};
const tree_node symbolic_link{.kind = entry_kind::link};
tree_node file(std::uint64_t size, std::optional<timestamp> modified = {})
{
    return {.size = size, .modified = modified};
}

timestamp exact(std::chrono::seconds time)
{
    return {sys_seconds(time), time_precision::second, true};
}
timestamp to_the_minute(std::chrono::seconds time)
{
    return {sys_seconds(time), time_precision::minute, true};
}
timestamp to_the_day(std::chrono::seconds time)
{
    return {sys_seconds(time), time_precision::day, true};
}
timestamp of_no_zone(std::chrono::seconds time)
{
    return {sys_seconds(time), time_precision::second, false};
}

const plan_options copy_all{};
const plan_options update{.update = true};
const plan_options mirror{.update = true, .remove_extra = true};

/// The steps in words; what is asked for its exact time is listed at the end.
steps plan(const tree_scan& from, const tree_scan& to, const plan_options& options,
           std::optional<timestamp> answer = {})
{
    static constexpr const char* verbs[] = {"make ", "copy ", "remove ", "remove folder ", "link "};
    static constexpr const char* reasons[] = {"", "", " newer", " size", "", " content", " target"};
    steps all;
    steps asked;
    const auto ask = [&](const std::string& path) {
        asked.push_back("ask " + path);
        return answer;
    };
    const auto is_same = [](const std::string& path) { return path == "same"; };
    const auto made = make_plan(from, to, options, ask, is_same);
    for (const auto& step : made.actions)
        all.push_back(verbs[static_cast<int>(step.what)] + step.path + reasons[static_cast<int>(step.why)]);
    for (const auto& conflict : made.conflicts)
        all.push_back("conflict " + conflict.path);
    all.insert(all.end(), asked.begin(), asked.end());
    return all;
}

} // namespace

TEST(TreePlan, CopiesAFileThatIsNewerOrOfAnotherSize)
{
    struct row {
        tree_node from;
        std::optional<tree_node> to;
        std::optional<timestamp> answer;
        steps wanted;
    };
    const row rows[] = {
        {file(1, exact(100s)), {}, {}, {"copy f"}},
        {file(1, exact(100s)), file(2, exact(900s)), {}, {"copy f size"}},
        {file(1, exact(100s)), file(1, exact(100s)), {}, {}},
        {file(1, exact(101s)), file(1, exact(100s)), {}, {"copy f newer"}},
        {file(1, exact(100s)), file(1, exact(101s)), {}, {}},
        {file(1), file(1, exact(100s)), {}, {}},
        {file(1, exact(100s)), file(1), {}, {}},
        // The listing of the destination is coarse: the server is asked only where that matters.
        {file(1, exact(130s)), file(1, to_the_minute(120s)), exact(120s), {"copy f newer", "ask f"}},
        {file(1, exact(130s)), file(1, to_the_minute(120s)), exact(140s), {"ask f"}},
        {file(1, exact(130s)), file(1, to_the_minute(120s)), {}, {"ask f"}},
        {file(1, exact(180s)), file(1, to_the_minute(120s)), {}, {"copy f newer"}},
        {file(1, exact(120s)), file(1, to_the_minute(120s)), {}, {}},
        {file(1, exact(36h)), file(1, to_the_day(24h)), exact(36h - 1s), {"copy f newer", "ask f"}},
        {file(1, exact(48h)), file(1, to_the_day(24h)), {}, {"copy f newer"}},
        // Clocks of the world differ by up to 14 hours.
        {file(1, exact(38h)), file(1, of_no_zone(24h)), exact(38h), {"ask f"}},
        {file(1, exact(38h + 1s)), file(1, of_no_zone(24h)), {}, {"copy f newer"}},
        {file(1, exact(10h + 1s)), file(1, of_no_zone(24h)), exact(10h), {"copy f newer", "ask f"}},
        {file(1, exact(10h)), file(1, of_no_zone(24h)), {}, {}},
        // That of the source is.
        {file(1, to_the_minute(120s)), file(1, exact(130s)), exact(131s), {"copy f newer", "ask f"}},
        {file(1, to_the_minute(120s)), file(1, exact(110s)), {}, {"copy f newer"}},
        {file(1, to_the_minute(120s)), file(1, exact(179s)), {}, {}},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const tree_scan from{.nodes = {{"f", rows[i].from}}};
        const tree_scan to{.nodes = rows[i].to ? nodes{{"f", *rows[i].to}} : nodes{}};
        EXPECT_EQ(plan(from, to, update, rows[i].answer), rows[i].wanted) << "row " << i;
    }
}

TEST(TreePlan, LinksWhatLeadsElsewhereAndCopiesWhatIsKnownToDiffer)
{
    const auto link = [](const char* target) { return tree_node{entry_kind::link, {}, {}, {}, target}; };
    const plan_options options{
        .update = true, .copy_links = true, .remote_root = "/r", .changed = {"d/f", "missing"}};
    const tree_scan from{.nodes = {{"a", link("x")},
                                   {"b", link("x")},
                                   {"c", link("")},
                                   {"d", folder},
                                   {"d/f", file(1)},
                                   {"d/g", file(1)},
                                   {"d/l", link("../x")}}};
    const tree_scan to{.nodes = {{"a", link("y")},
                                 {"b", link("x")},
                                 {"d", folder},
                                 {"d/f", file(1)},
                                 {"d/g", file(1)},
                                 {"d/l", link("/r/x")}}};
    EXPECT_THAT(plan(from, to, options), ElementsAre("copy d/f newer", "link a target"));
}

TEST(TreePlan, RemovesOnlyWhatItKnows)
{
    const tree_scan from{.nodes = {{"k", folder}, {"k/a", file(1)}}};
    tree_scan to{.nodes = {{"k", folder},
                           {"k/a", file(1)},
                           {"k/x", file(1)},
                           {"d", folder},
                           {"d/e", folder},
                           {"l", symbolic_link}}};
    EXPECT_THAT(plan(from, {.exists = false}, copy_all), ElementsAre("make ", "make k", "copy k/a"));
    EXPECT_THAT(plan(from, to, copy_all), ElementsAre("copy k/a"));
    EXPECT_THAT(plan(from, to, update), IsEmpty());
    EXPECT_THAT(plan(from, to, mirror),
                ElementsAre("remove l", "remove k/x", "remove folder d/e", "remove folder d"));
    to.kept = {"d"};
    EXPECT_THAT(plan(from, to, mirror), ElementsAre("remove l", "remove k/x", "remove folder d/e"));
    // A folder that became a link may have been moved; what is passed over need not be a node.
    tree_scan moved{.nodes = {{"d", symbolic_link}}, .passed_over = {"d"}};
    to.kept = {};
    EXPECT_THAT(plan(moved, to, mirror),
                ElementsAre("remove l", "remove k/x", "remove k/a", "remove folder k"));
    moved = {.nodes = {}, .passed_over = {"d/e/f"}};
    EXPECT_THAT(plan(moved, to, mirror),
                ElementsAre("remove l", "remove k/x", "remove k/a", "remove folder k"));
    to.kept = {"d"};
    for (const bool of_source : {true, false})
        for (const bool failure : {true, false}) {
            tree_scan source = from;
            tree_scan destination = to;
            tree_scan& incomplete = of_source ? source : destination;
            if (failure)
                incomplete.failures.push_back({"b", nullptr});
            else
                incomplete.skipped.push_back("?");
            EXPECT_THAT(plan(source, destination, mirror), IsEmpty());
        }
}

TEST(TreePlan, ReplacesNoFolderByAFileNorTheOtherWayRound)
{
    const tree_scan from{
        .nodes = {{"d", folder}, {"d/x", file(1)}, {"f", file(0)}, {"g", folder}, {"g/x", file(1)}}};
    const tree_scan to{.nodes = {{"d", file(0)}, {"f", folder}, {"f/more", file(1)}, {"g", symbolic_link}}};
    EXPECT_THAT(plan(from, to, mirror), ElementsAre("conflict d", "conflict f", "conflict g"));
}

TEST(TreePlan, ComparesWhatItIsToldTo)
{
    const tree_scan from{.nodes = {{"new", file(1, exact(9s))},
                                   {"old", file(2, exact(1s))},
                                   {"same", file(1, exact(9s))},
                                   {"size", file(2, exact(9s))}}};
    const tree_scan to{.nodes = {{"new", file(1, exact(5s))},
                                 {"old", file(1, exact(5s))},
                                 {"same", file(1, exact(5s))},
                                 {"size", file(1, exact(5s))}}};
    plan_options options = update;
    EXPECT_THAT(plan(from, to, options),
                ElementsAre("copy new newer", "copy old size", "copy same newer", "copy size size"));
    options.newer = newer_targets::skip;
    EXPECT_THAT(plan(from, to, options), ElementsAre("copy new newer", "copy same newer", "copy size size"));
    options.newer = newer_targets::refuse;
    options.comparison = sync_comparison::size;
    EXPECT_THAT(plan(from, to, options), ElementsAre("copy size size", "conflict old"));
    options.comparison = sync_comparison::checksum;
    EXPECT_THAT(plan(from, to, options), ElementsAre("copy new content", "copy size size", "conflict old"));
}
