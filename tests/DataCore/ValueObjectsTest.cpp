#include <gtest/gtest.h>

#include "CollectingAlertHandler.h"
#include "Kiv/DataCore/Data.h"
#include "Kiv/DataCore/Serializer.h"

using namespace Kiv::DataCore;

namespace
{
template <class T>
void ExpectKind(unsigned expectedKind, const std::string& expectedName)
{
    Data<T> value;
    unsigned kind = 1000;
    std::string name;
    value.DescribeType(kind, name);
    EXPECT_EQ(kind, expectedKind) << expectedName;
    EXPECT_EQ(name, expectedName);
    EXPECT_EQ(value.GetTypeName(), expectedName);
    EXPECT_TRUE(value.IsType(typeid(T))) << expectedName;
    EXPECT_FALSE(value.IsType(typeid(char))) << expectedName;
}
} // namespace

TEST(ValueObjects, KindCodesAndTypeNames)
{
    ExpectKind<int>(6, "int");
    ExpectKind<HostLong>(8, "long");
    ExpectKind<float>(12, "float");
    ExpectKind<double>(13, "double");
    ExpectKind<std::string>(17, "AsciiString");
    ExpectKind<UnitizedDouble>(19, "TUnitized");
    ExpectKind<StringList>(66, "vector<string>");
    ExpectKind<FloatMatrix>(69, "Matrix<float>");
    ExpectKind<FloatMatrixList>(0, "vector<Matrix<float>>");
}

TEST(ValueObjects, IsSameTypeComparesTheValueType)
{
    Data<int> a, b;
    Data<HostLong> c;
    GenericWrapper<int> wrapper(boost::make_shared<int>(1));
    EXPECT_TRUE(a.IsSameType(b));
    EXPECT_TRUE(a.IsSameType(wrapper));
    EXPECT_FALSE(a.IsSameType(c));
}

TEST(ValueObjects, WrapperCloneSharesTheValueDataCloneCopiesIt)
{
    auto shared = boost::make_shared<int>(5);
    GenericWrapper<int> wrapper(shared);
    const auto wrapperClone = boost::dynamic_pointer_cast<GenericWrapper<int>>(wrapper.Clone());
    ASSERT_TRUE(wrapperClone);
    *shared = 7;
    EXPECT_EQ(*wrapperClone->GetDataReference(), 7);
    EXPECT_FALSE(wrapperClone->GetSerializer());

    Data<int> owned(5);
    const auto ownedClone = boost::dynamic_pointer_cast<Data<int>>(owned.Clone());
    ASSERT_TRUE(ownedClone);
    owned.Value() = 9;
    EXPECT_EQ(ownedClone->Value(), 5);
    EXPECT_NE(ownedClone->GetDataReference(), owned.GetDataReference());
}

TEST(ValueObjects, SerializerPresenceFollowsTheSource)
{
    Data<double> withSerializer(1.5);
    ASSERT_TRUE(withSerializer.EnableSerialization(true));
    const auto copy = withSerializer.Clone();
    ASSERT_TRUE(copy->GetSerializer());
    EXPECT_NE(copy->GetSerializer(), withSerializer.GetSerializer()) << "a serializer of its own";
    EXPECT_EQ(&copy->GetSerializer()->GetDataObject(), copy.get()) << "bound to the copy";

    Data<double> without(1.5);
    EXPECT_FALSE(without.Clone()->GetSerializer());

    EXPECT_TRUE(withSerializer.EnableSerialization(false));
    EXPECT_FALSE(withSerializer.GetSerializer());
}

TEST(ValueObjects, ListOfMatricesHasNoSerializer)
{
    Data<FloatMatrixList> list;
    EXPECT_FALSE(list.EnableSerialization(true));
    EXPECT_FALSE(list.GetSerializer());
}

TEST(ValueObjects, LockingFlagsAndLockabilityOfCopies)
{
    Data<int> value(1);
    EXPECT_EQ(value.GetDataFlags(), 6u);
    EXPECT_FALSE(value.GetDataLock());
    EXPECT_TRUE(value.EnableDataLocking());
    EXPECT_FALSE(value.EnableDataLocking()) << "already lockable";
    EXPECT_EQ(value.GetDataFlags(), 134u);
    EXPECT_TRUE(value.GetDataLock());
    EXPECT_EQ(value.Clone()->GetDataFlags(), 134u);

    GenericWrapper<int> wrapper(boost::make_shared<int>(2));
    wrapper.EnableDataLocking();
    EXPECT_EQ(wrapper.Clone()->GetDataFlags(), 134u);
}

TEST(ValueObjects, SetDataReferenceAndCreateData)
{
    Data<std::string> text(std::string("old"));
    const auto mine = boost::make_shared<std::string>("mine");
    text.SetDataReference(mine);
    *mine = "changed";
    EXPECT_EQ(text.Value(), "changed");
    text.CreateData();
    EXPECT_EQ(text.Value(), "");
    EXPECT_EQ(*mine, "changed");

    Data<UnitizedDouble> unitized;
    EXPECT_EQ(unitized.Value().GetValue(), 0.0);
    EXPECT_TRUE(unitized.Value().GetUnit()->IsUnitless());
}
