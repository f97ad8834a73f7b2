#pragma once

#include <zcos/COSClassInfo.hpp>
#include <zorbelhost_export.hpp>

#include <memory>
#include <new>
#include <string>
#include <string_view>

// The registry of class objects: namespaces hold classes, classes make objects. Safe to use from several
// threads; one object is used by one thread at a time.

namespace zcos {

/// The host has no memory left.
class ZORBELHOST_EXPORT OutOfMemoryException : public std::bad_alloc {
public:
    const char* what() const noexcept override;
};

/// A registered class: its full name and its descriptor, which it owns.
class ZORBELHOST_EXPORT COSClass {
public:
    COSClass(std::string full_name, std::unique_ptr<COSClassInfo> info);
    COSClass(const COSClass&) = delete;
    COSClass& operator=(const COSClass&) = delete;
    ~COSClass();

    const std::string& getFullName() const { return full_name_; }
    COSClassInfo& getInfo() const { return *info_; }

private:
    std::string full_name_;
    std::unique_ptr<COSClassInfo> info_;
};

/// One object: its class, which it keeps alive, and its instance data.
class ZORBELHOST_EXPORT COSObject {
public:
    /// Makes the instance data through the class's descriptor; what that throws leaves nothing behind.
    explicit COSObject(std::shared_ptr<COSClass> its_class);
    COSObject(const COSObject&) = delete;
    COSObject& operator=(const COSObject&) = delete;
    ~COSObject();

    /// The class of which it is.
    COSClass* getClass() const { return class_.get(); }

    /// The object's instance data for `the_class`; null when that is not its class.
    void* getInstanceData(const COSClass* the_class) const;

private:
    std::shared_ptr<COSClass> class_;
    void* data_;
};

/// A value that refers to an object. Copies refer to the same one; the last to go destroys it.
using COSValue = std::shared_ptr<COSObject>;

/// A place for classes and inner namespaces. Lives until `omReset`.
class ZORBELHOST_EXPORT COSNamespace {
public:
    explicit COSNamespace(std::string full_name);
    COSNamespace(const COSNamespace&) = delete;
    COSNamespace& operator=(const COSNamespace&) = delete;

    const std::string& getFullName() const { return full_name_; }

    /// Registers the class that `info` describes and takes `info` over, also when it throws. A name that is
    /// registered already keeps its first class, so that living objects keep theirs, and `info` is deleted.
    /// The two numbers mean nothing to the stand-alone host. Throws `std::invalid_argument` for null.
    void registerClass(COSClassInfo* info, int first, int second);

private:
    std::string full_name_;
};

/// A name of which there is one in the process: equal names have equal addresses.
using InternedName = const std::string*;

} // namespace zcos

/// The outermost namespace `name`, made when it is missing.
ZORBELHOST_EXPORT zcos::COSNamespace* omGetNamespace(std::string_view name);

/// The namespace `name` inside `outer`, made when it is missing; null for a null `outer`.
ZORBELHOST_EXPORT zcos::COSNamespace* omGetInnerNamespace(const zcos::COSNamespace* outer,
                                                          std::string_view name);

/// Whether classes are registered with a service registry that asks for them again at every module start. False
/// at the start; the program says.
ZORBELHOST_EXPORT bool omGetZcosUsingUSM();
ZORBELHOST_EXPORT void omSetZcosUsingUSM(bool on);

/// The one name that equals `name`.
ZORBELHOST_EXPORT zcos::InternedName makeInterned(std::string_view name);

/// The class of that full name ("zorbel.io.internal.Connection"); null when there is none.
ZORBELHOST_EXPORT std::shared_ptr<zcos::COSClass> omFindClass(zcos::InternedName full_name);

/// Whether both are the same class. Null is no class, not even the same as another null.
ZORBELHOST_EXPORT bool omIsSameClass(const zcos::COSClass* one, const zcos::COSClass* other);

/// A new object of `the_class`. Throws what the class's `allocateInstance` throws, `std::invalid_argument` for
/// null.
ZORBELHOST_EXPORT zcos::COSValue omCreateObject(const std::shared_ptr<zcos::COSClass>& the_class);

/// Forgets every namespace and class: pointers to namespaces become invalid; a class and its descriptor go with
/// the last object of the class. For a program that unloads the module that registered them.
ZORBELHOST_EXPORT void omReset();
