#include "tree.hpp"

#include "error.hpp"
#include "text.hpp"

namespace qrftp::python {

namespace {

const char* name_of_kind(tree_action::kind what)
{
    switch (what) {
    case tree_action::kind::make_folder:
        return "make_folder";
    case tree_action::kind::copy:
        return "copy";
    case tree_action::kind::remove_file:
        return "remove_file";
    case tree_action::kind::make_link:
        return "make_link";
    case tree_action::kind::remove_folder:
        break;
    }
    return "remove_folder";
}

const char* name_of_reason(tree_action::reason why)
{
    switch (why) {
    case tree_action::reason::wanted:
        return "wanted";
    case tree_action::reason::missing:
        return "missing";
    case tree_action::reason::newer:
        return "newer";
    case tree_action::reason::other_size:
        return "other_size";
    case tree_action::reason::other_content:
        return "other_content";
    case tree_action::reason::other_target:
        return "other_target";
    case tree_action::reason::extra:
        break;
    }
    return "extra";
}

template <class Values, class Convert>
py::list convert_all(const Values& values, const Convert& convert)
{
    py::list all;
    for (const auto& each : values) {
        all.append(convert(each));
    }
    return all;
}

} // namespace

py::tuple to_python(const tree_action& step)
{
    return py::make_tuple(name_of_kind(step.what), name_of_reason(step.why), to_text(step.path), step.size);
}

py::tuple to_python(const tree_progress& now)
{
    return py::make_tuple(to_text(now.path), now.file.bytes, now.file.total, now.file.rate, now.all.bytes,
                          now.all.total, now.all.rate, now.files_done, now.files);
}

py::tuple to_python(const tree_result& result)
{
    return py::make_tuple(convert_all(result.done, [](const tree_action& step) { return to_python(step); }),
                          convert_all(result.failures,
                                      [](const tree_failure& each) {
                                          return py::make_tuple(to_text(each.path), to_python(each.error));
                                      }),
                          convert_all(result.skipped, to_text), convert_all(result.passed_over, to_text),
                          result.bytes);
}

} // namespace qrftp::python
