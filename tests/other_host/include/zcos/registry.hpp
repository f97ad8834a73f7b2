#pragma once

#include <other_host.hpp>
#include <zcos/COSClassInfo.hpp>

#include <memory>
#include <stdexcept>
#include <string>

namespace zcos {

struct OTHER_HOST OutOfMemoryException : std::runtime_error {
    OutOfMemoryException() : std::runtime_error("out of memory") {}
};

/// The one class there is.
class COSClass {
public:
    explicit COSClass(COSClassInfo* info) : info_(info) {}
    COSClassInfo& info() const { return *info_; }

private:
    std::unique_ptr<COSClassInfo> info_;
};

class COSObject {
public:
    explicit COSObject(COSClass& its_class) : class_(its_class), data_(its_class.info().allocateInstance(this))
    {
    }
    COSObject(const COSObject&) = delete;
    COSObject& operator=(const COSObject&) = delete;
    ~COSObject() { class_.info().deallocateInstance(this, data_); }

    COSClass* getClass() const { return &class_; }
    void* getInstanceData(const COSClass* /*the_class*/) const { return data_; }

private:
    COSClass& class_;
    void* data_;
};

struct OTHER_HOST COSNamespace {
    void registerClass(COSClassInfo* info, int first, int second);
    std::string name;
};

} // namespace zcos

OTHER_HOST zcos::COSNamespace* omGetNamespace(const char* name);
OTHER_HOST zcos::COSNamespace* omGetInnerNamespace(zcos::COSNamespace* outer, const char* name);
OTHER_HOST std::shared_ptr<zcos::COSClass> omFindClass(const std::string& full_name);

inline bool omGetZcosUsingUSM()
{
    return false;
}
inline std::string makeInterned(const char* name)
{
    return name;
}
inline bool omIsSameClass(const zcos::COSClass* one, const zcos::COSClass* other)
{
    return one == other;
}
