#pragma once

#include <zcos/registry.hpp>
#include <zorbelhost_export.hpp>

#include <cstddef>
#include <vector>

/// A host array whose elements refer to objects (or to nothing, where they are null).
///
/// While elements are appended its dimensions are not complete; whoever needs them has them completed first.
/// One thread at a time.
class ZORBELHOST_EXPORT zxArray {
public:
    /// The empty array, 0 by 0.
    zxArray() = default;

    /// One value, 1 by 1.
    explicit zxArray(zcos::COSValue scalar);

    /// Throws `std::invalid_argument` unless the product of `dimensions` is the number of `elements`.
    zxArray(std::vector<std::size_t> dimensions, std::vector<zcos::COSValue> elements);

    /// Adds an element at the end and leaves the dimensions incomplete.
    void append(zcos::COSValue element);

    bool areDimensionsComplete() const { return complete_; }

    /// Makes incomplete dimensions those of a row of all elements; does nothing to complete ones.
    void completeDimensions() const;

    /// As they stand, complete or not.
    const std::vector<std::size_t>& getDimensions() const { return dimensions_; }

    /// The product of the dimensions as they stand.
    std::size_t getNumberOfElements() const;

private:
    friend ZORBELHOST_EXPORT zcos::COSObject* omGetArrayElement(const zxArray* array, std::size_t index);

    mutable std::vector<std::size_t> dimensions_{0, 0};
    mutable bool complete_ = true;
    std::vector<zcos::COSValue> elements_;
};

/// The object that element `index` refers to, owned by the array; null for a null array, an index outside of it
/// and an element that refers to nothing.
ZORBELHOST_EXPORT zcos::COSObject* omGetArrayElement(const zxArray* array, std::size_t index);
