#pragma once

#include <zorbelhost_export.hpp>

#include <string>

/// Frees what `calloc` or `malloc` gave; null is ignored.
ZORBELHOST_EXPORT void utFree(void* memory) noexcept;

namespace zcos {

class COSClass;
class COSObject;

/// On whose behalf the registry asks. The stand-alone host has no clients and always passes null.
class COSClient;

/// Describes one class of objects to the registry: a program derives from it and registers an object of the
/// derived type in a namespace, which then owns it.
///
/// The registry deletes a descriptor through its virtual destructor, and so with the derived class's own
/// operator delete. It calls a descriptor from the thread that makes or destroys the object.
class ZORBELHOST_EXPORT COSClassInfo {
public:
    COSClassInfo() = default;
    COSClassInfo(const COSClassInfo&) = delete;
    COSClassInfo& operator=(const COSClassInfo&) = delete;
    virtual ~COSClassInfo();

    /// The class's name in its namespace.
    virtual const char* getName() const = 0;

    /// Called once, when the class is registered. What it throws undoes the registration.
    virtual void initializeClass(COSClass* the_class, COSClient* client);

    /// Makes the instance data of a new object. What it throws reaches whoever wanted the object.
    virtual void* allocateInstance(COSObject* object) = 0;

    /// Frees what `allocateInstance` made. Must not throw.
    virtual void deallocateInstance(COSObject* object, void* data) = 0;

    /// Asked when the last reference to `object` has gone: false leaves its instance data to the class.
    virtual bool isOkToDestroy(COSClient* client, COSObject* object);

    /// Whether values that are copied go on referring to one object. Values of this registry always do.
    virtual bool isHandleClass() const;

    virtual std::string getDescription() const;
    virtual std::string getAccess() const;
    virtual bool isHidden() const;
    virtual bool isSealed() const;
    virtual bool isAbstract() const;
    virtual bool isEnumeration() const;
    virtual bool isHandleCompatible() const;
    virtual bool isDestructible() const;
    virtual bool isArray() const;
};

} // namespace zcos
