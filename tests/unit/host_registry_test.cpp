#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <zx/array.hpp>

using Calls = std::map<std::string, int>;

struct Descriptor final : zcos::COSClassInfo {
    explicit Descriptor(Calls& to) : calls(to) {}
    ~Descriptor() override { ++calls["deleted"]; }
    const char* getName() const override { return "Connection"; }
    void initializeClass(zcos::COSClass*, zcos::COSClient*) override { ++calls["initialized"]; }
    void* allocateInstance(zcos::COSObject*) override { return calls["allocated"]++ > 0 ? throw 1 : &calls; }
    void deallocateInstance(zcos::COSObject*, void* data) override { calls["freed"] += data == &calls; }
    Calls& calls;
};

static std::shared_ptr<zcos::COSClass> add_class(Calls& calls, const std::string& outer = "zorbel")
{
    auto* const inner = omGetInnerNamespace(omGetInnerNamespace(omGetNamespace(outer), "io"), "internal");
    inner->registerClass(new Descriptor(calls), 0, 2);
    return omFindClass(makeInterned(outer + ".io.internal.Connection"));
}

TEST(ObjectRegistry, OwnsClassesAndSharesObjectsThroughArrays)
{
    Calls calls{}, second{}, others{};
    const auto other = omCreateObject(add_class(others, "other"));
    auto its_class = add_class(calls);
    EXPECT_EQ(add_class(second), its_class);
    EXPECT_TRUE(calls["initialized"] == 1 && calls["deleted"] == 0 && second == Calls({{"deleted", 1}}));
    zxArray array;
    array.append(omCreateObject(its_class));
    EXPECT_TRUE(array.getNumberOfElements() == 0 && !array.areDimensionsComplete());
    array.completeDimensions();
    zxArray copy = std::exchange(array, zxArray(nullptr));
    auto* const object = omGetArrayElement(&copy, 0);
    EXPECT_TRUE(omIsSameClass(object->getClass(), its_class.get()) && object->getClass() != other->getClass());
    EXPECT_TRUE(copy.getNumberOfElements() == 1 && object->getInstanceData(its_class.get()) == &calls &&
                !object->getInstanceData(other->getClass()));
    EXPECT_TRUE(!omGetArrayElement(&array, 0) && !omGetArrayElement(&array, 1));
    EXPECT_THROW(zxArray({std::size_t{1} << 63U, 2}, {}), std::invalid_argument);
    EXPECT_THROW(omCreateObject(its_class), int);
    its_class.reset();
    omReset();
    EXPECT_EQ(calls["freed"] + calls["deleted"], 0);
    copy = zxArray();
    EXPECT_EQ(calls, Calls({{"initialized", 1}, {"allocated", 2}, {"freed", 1}, {"deleted", 1}}));
}
