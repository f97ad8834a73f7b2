#pragma once

#include <other_host.hpp>

OTHER_HOST void utFree(void* memory) noexcept;

namespace zcos {

class COSClass;
class COSObject;
class COSClient;

class OTHER_HOST COSClassInfo {
public:
    virtual bool isHandleClass() const { return false; }
    virtual bool isOkToDestroy(COSClient* /*client*/, COSObject* /*object*/) { return false; }
    virtual void initializeClass(COSClass* the_class, COSClient* client) = 0;
    virtual const char* getName() const = 0;
    virtual void* allocateInstance(COSObject* object) = 0;
    virtual void deallocateInstance(COSObject* object, void* data) = 0;
    virtual ~COSClassInfo() = default;
};

} // namespace zcos
