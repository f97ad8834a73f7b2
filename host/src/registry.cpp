#include <zcos/registry.hpp>
#include <zx/array.hpp>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <stdexcept>
#include <utility>

namespace {

using zcos::COSClass;
using zcos::COSNamespace;

struct Registry {
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<COSNamespace>, std::less<>> namespaces;
    std::map<std::string, std::shared_ptr<COSClass>, std::less<>> classes;
    std::set<std::string, std::less<>> names;
};

Registry& registry()
{
    static Registry only;
    return only;
}

std::atomic<bool> using_usm{false};

} // namespace

namespace zcos {

COSClassInfo::~COSClassInfo() = default;
void COSClassInfo::initializeClass(COSClass* /*the_class*/, COSClient* /*client*/)
{
}
bool COSClassInfo::isOkToDestroy(COSClient* /*client*/, COSObject* /*object*/)
{
    return true;
}
bool COSClassInfo::isHandleClass() const
{
    return false;
}
std::string COSClassInfo::getDescription() const
{
    return {};
}
std::string COSClassInfo::getAccess() const
{
    return "public";
}
bool COSClassInfo::isHidden() const
{
    return false;
}
bool COSClassInfo::isSealed() const
{
    return false;
}
bool COSClassInfo::isAbstract() const
{
    return false;
}
bool COSClassInfo::isEnumeration() const
{
    return false;
}
bool COSClassInfo::isHandleCompatible() const
{
    return isHandleClass();
}
bool COSClassInfo::isDestructible() const
{
    return true;
}
bool COSClassInfo::isArray() const
{
    return false;
}

const char* OutOfMemoryException::what() const noexcept
{
    return "There is not enough memory.";
}

COSClass::COSClass(std::string full_name, std::unique_ptr<COSClassInfo> info)
    : full_name_(std::move(full_name)), info_(std::move(info))
{
}

COSClass::~COSClass() = default;

COSObject::COSObject(std::shared_ptr<COSClass> its_class)
    : class_(std::move(its_class)), data_(class_->getInfo().allocateInstance(this))
{
}

COSObject::~COSObject()
{
    COSClassInfo& info = class_->getInfo();
    if (info.isOkToDestroy(nullptr, this)) {
        info.deallocateInstance(this, data_);
    }
}

void* COSObject::getInstanceData(const COSClass* the_class) const
{
    return omIsSameClass(class_.get(), the_class) ? data_ : nullptr;
}

COSNamespace::COSNamespace(std::string full_name) : full_name_(std::move(full_name))
{
}

void COSNamespace::registerClass(COSClassInfo* info, int /*first*/, int /*second*/)
{
    std::unique_ptr<COSClassInfo> owned(info);
    if (!owned) {
        throw std::invalid_argument("a class cannot be registered without a descriptor");
    }
    const std::string name = full_name_ + '.' + owned->getName();
    if (omFindClass(&name)) {
        return;
    }
    // Outside the lock, for the descriptor may ask the registry; should two threads come here, the first stays.
    const auto made = std::make_shared<COSClass>(name, std::move(owned));
    made->getInfo().initializeClass(made.get(), nullptr);
    const std::lock_guard lock(registry().mutex);
    registry().classes.try_emplace(name, made);
}

} // namespace zcos

void utFree(void* memory) noexcept
{
    std::free(memory); // NOLINT(cppcoreguidelines-no-malloc): the host's allocator is the C library's
}

zcos::COSNamespace* omGetNamespace(std::string_view name)
{
    const std::lock_guard lock(registry().mutex);
    auto& place = registry().namespaces[std::string(name)];
    if (!place) {
        place = std::make_unique<COSNamespace>(std::string(name));
    }
    return place.get();
}

zcos::COSNamespace* omGetInnerNamespace(const zcos::COSNamespace* outer, std::string_view name)
{
    return outer == nullptr ? nullptr : omGetNamespace(outer->getFullName() + '.' + std::string(name));
}

bool omGetZcosUsingUSM()
{
    return using_usm;
}

void omSetZcosUsingUSM(bool on)
{
    using_usm = on;
}

zcos::InternedName makeInterned(std::string_view name)
{
    const std::lock_guard lock(registry().mutex);
    return &*registry().names.emplace(name).first;
}

std::shared_ptr<zcos::COSClass> omFindClass(zcos::InternedName full_name)
{
    const std::lock_guard lock(registry().mutex);
    const auto found = full_name == nullptr ? registry().classes.end() : registry().classes.find(*full_name);
    return found == registry().classes.end() ? nullptr : found->second;
}

bool omIsSameClass(const zcos::COSClass* one, const zcos::COSClass* other)
{
    return one != nullptr && one == other;
}

zcos::COSValue omCreateObject(const std::shared_ptr<zcos::COSClass>& the_class)
{
    if (!the_class) {
        throw std::invalid_argument("an object needs a class");
    }
    return std::make_shared<zcos::COSObject>(the_class);
}

void omReset()
{
    // The classes go after the lock: their descriptors may ask the registry.
    std::map<std::string, std::shared_ptr<COSClass>, std::less<>> classes;
    const std::lock_guard lock(registry().mutex);
    classes.swap(registry().classes);
    registry().namespaces.clear();
}

zxArray::zxArray(zcos::COSValue scalar) : zxArray({1, 1}, {std::move(scalar)})
{
}

zxArray::zxArray(std::vector<std::size_t> dimensions, std::vector<zcos::COSValue> elements)
    : dimensions_(std::move(dimensions)), elements_(std::move(elements))
{
    if (getNumberOfElements() != elements_.size()) {
        throw std::invalid_argument("the dimensions of an array must multiply to its number of elements");
    }
}

void zxArray::append(zcos::COSValue element)
{
    elements_.push_back(std::move(element));
    complete_ = false;
}

void zxArray::completeDimensions() const
{
    if (!complete_) {
        dimensions_ = {1, elements_.size()};
        complete_ = true;
    }
}

std::size_t zxArray::getNumberOfElements() const
{
    if (std::find(dimensions_.begin(), dimensions_.end(), 0) != dimensions_.end()) {
        return 0;
    }
    std::size_t product = 1;
    for (const std::size_t dimension : dimensions_) {
        // No array is as large as that; a product that overflows must not come out small.
        if (product > std::numeric_limits<std::size_t>::max() / dimension) {
            return std::numeric_limits<std::size_t>::max();
        }
        product *= dimension;
    }
    return product;
}

zcos::COSObject* omGetArrayElement(const zxArray* array, std::size_t index)
{
    return array == nullptr || index >= array->elements_.size() ? nullptr : array->elements_[index].get();
}
