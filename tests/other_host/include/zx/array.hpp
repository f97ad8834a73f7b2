#pragma once

#include <zcos/registry.hpp>

#include <cstddef>

/// One object, or none.
class zxArray {
public:
    explicit zxArray(zcos::COSObject* object) : object_(object) {}
    void completeDimensions() const {}
    std::size_t getNumberOfElements() const { return object_ == nullptr ? 0 : 1; }

private:
    friend zcos::COSObject* omGetArrayElement(const zxArray* array, int index);
    zcos::COSObject* object_;
};

inline zcos::COSObject* omGetArrayElement(const zxArray* array, int /*index*/)
{
    return array->object_;
}
