#include <fl/i18n/ustring_to_utf8.hpp>
#include <foundation/log/basic_diagnostic_logger.hpp>
#include <foundation/services/bundle_context.hpp>
#include <zcos/registry.hpp>
#include <zorbel/io/common/file.hpp>
#include <zorbel/io/common/file/errors.hpp>
#include <zx/warning.hpp>

#include <algorithm>
#include <cstdlib>
#include <typeindex>
#include <utility>

std::string fl::i18n::ustring_to_utf8(const ustring& text)
{
    std::string bytes;
    for (const unsigned unit : text) {
        if (unit >= 0x800) {
            throw std::range_error("a character of more than two bytes");
        }
        if (unit >= 0x80) {
            bytes += static_cast<char>(0xc0 | unit >> 6);
        }
        bytes += static_cast<char>(unit < 0x80 ? unit : 0x80 | (unit & 0x3f));
    }
    return bytes;
}

namespace foundation::log {

record::record(basic_diagnostic_logger& logger, level_mask level, const char* file, unsigned line)
    : logger_(logger), uncaught_(std::uncaught_exceptions())
{
    text_ << level << ':' << logger.depth_ << ' ' << file << (line == 0 ? "?" : "") << ' ';
}

record::~record()
{
    if (std::uncaught_exceptions() == uncaught_) {
        logger_.records.push_back(text_.str());
    }
}

} // namespace foundation::log

std::shared_ptr<void>& foundation::services::service(const std::type_info& interface)
{
    static std::map<std::type_index, std::shared_ptr<void>> all;
    return all[interface];
}

std::vector<std::string>& warnings()
{
    static std::vector<std::string> all;
    return all;
}

void utFree(void* memory) noexcept
{
    std::free(memory);
}

namespace {

std::map<std::string, std::shared_ptr<zcos::COSClass>>& classes()
{
    static std::map<std::string, std::shared_ptr<zcos::COSClass>> all;
    return all;
}

} // namespace

void zcos::COSNamespace::registerClass(COSClassInfo* info, int /*first*/, int /*second*/)
{
    auto registered = std::make_shared<COSClass>(info);
    info->initializeClass(registered.get(), nullptr);
    classes()[name + "." + info->getName()] = std::move(registered);
}

zcos::COSNamespace* omGetNamespace(const char* name)
{
    static std::map<std::string, zcos::COSNamespace> all;
    return &all.try_emplace(name, zcos::COSNamespace{name}).first->second;
}

zcos::COSNamespace* omGetInnerNamespace(zcos::COSNamespace* outer, const char* name)
{
    return omGetNamespace((outer->name + "." + name).c_str());
}

std::shared_ptr<zcos::COSClass> omFindClass(const std::string& full_name)
{
    return classes()[full_name];
}

namespace zorbel::io::common::file {

std::map<fl::ustring, content>& files()
{
    static std::map<fl::ustring, content> all;
    return all;
}

File make_readable_file(const fl::ustring& path)
{
    if (path == u"secret") {
        foundation::core::except::raise<ZORBEL::io::common::file::PermissionDenied>(u"a secret");
    }
    return {files().at(path)};
}

File make_writeable_file(const fl::ustring& path)
{
    return {files()[path] = std::make_shared<std::string>()};
}

vfs_file make_vfs_file(const fl::ustring& path)
{
    return {files().at(path)};
}

std::variant<long, std::exception_ptr> read(File file, char* buffer, long count) noexcept
{
    const std::size_t read = file.bytes->copy(buffer, static_cast<std::size_t>(count), *file.position);
    *file.position += read;
    return read == 0 ? -1L : static_cast<long>(read);
}

std::variant<long, std::exception_ptr> write(File file, const char* data, long count) noexcept
try {
    file.bytes->append(data, static_cast<std::size_t>(count));
    return count;
} catch (...) {
    return std::current_exception();
}

std::exception_ptr close(File /*file*/) noexcept
{
    return nullptr;
}

void handle_exception(std::exception_ptr failure, File /*file*/, Operation /*operation*/)
{
    if (failure) {
        std::rethrow_exception(std::move(failure));
    }
}

} // namespace zorbel::io::common::file
