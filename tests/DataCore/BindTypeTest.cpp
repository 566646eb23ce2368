#include <gtest/gtest.h>

#include <functional>

#include "CollectingAlertHandler.h"
#include "Kiv/DataCore/BuiltInSerializers.h"
#include "Kiv/DataCore/MemoryStreams.h"
#include "Kiv/DataCore/UnboundData.h"

using namespace Kiv::DataCore;

namespace
{
const char* const BIND_ALERT_ID = "Kiv.DataCore.UnboundData.BindType";

template <class T>
std::vector<char> BytesOf(const T& value)
{
    Data<T> data(value);
    data.CreateSerializer();
    MemoryOutputStream out;
    data.GetSerializer()->ToBinary(out);
    return out.TakeBytes();
}

// The bound object's value; fails the test when the object is not a Data<T>.
template <class T>
const T& BoundValue(const boost::shared_ptr<DataObject>& object)
{
    const auto data = boost::dynamic_pointer_cast<Data<T>>(object);
    if (!data)
    {
        throw std::logic_error("not a bound " + ValueTraits<T>::TypeName());
    }
    return data->Value();
}

template <class T>
void ExpectBindsBack(const T& value, const std::function<bool(const T&, const T&)>& same)
{
    KivTest::ScopedAlertCollector alerts;
    for (const bool lockable : {false, true})
    {
        UnboundData unbound(ValueTraits<T>::TypeName(), BytesOf(value), lockable);
        const auto bound = unbound.BindType<T>();
        ASSERT_TRUE(bound) << ValueTraits<T>::TypeName();
        EXPECT_TRUE(same(BoundValue<T>(bound), value)) << ValueTraits<T>::TypeName();
        EXPECT_EQ(bound->IsLockable(), lockable);
        EXPECT_TRUE(bound->GetSerializer()) << "a bound value keeps its serializer";
    }
    EXPECT_TRUE(alerts->Records().empty());
}
} // namespace

TEST(BindType, EverySerializableTypeBindsBackToItsValue)
{
    const auto equal = [](const auto& a, const auto& b) { return a == b; };
    ExpectBindsBack<int>(-7, equal);
    ExpectBindsBack<HostLong>(123456, equal);
    ExpectBindsBack<float>(2.5f, equal);
    ExpectBindsBack<double>(1e-9, equal);
    ExpectBindsBack<std::string>("Pelrix \xB5m", equal);
    ExpectBindsBack<std::string>("", equal);
    ExpectBindsBack<StringList>({"x", "", "yz"}, equal);
    ExpectBindsBack<UnitizedDouble>(
        UnitizedDouble(3.25, "\xB5m/s"), [](const UnitizedDouble& a, const UnitizedDouble& b)
        { return a.GetValue() == b.GetValue() && a.GetUnit() == b.GetUnit(); });
    FloatMatrix matrix(2, 1);
    matrix(0, 0) = 1.0f;
    matrix(1, 0) = -2.0f;
    ExpectBindsBack<FloatMatrix>(matrix,
                                 [](const FloatMatrix& a, const FloatMatrix& b)
                                 {
                                     return a.size1() == b.size1() && a.size2() == b.size2() &&
                                            std::equal(a.data().begin(), a.data().end(),
                                                       b.data().begin());
                                 });
}

TEST(BindType, TypeMismatchWarnsOnceAndGivesNothing)
{
    KivTest::ScopedAlertCollector alerts;
    UnboundData unbound("int", BytesOf<int>(5), false);
    EXPECT_FALSE(unbound.BindType<double>());
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].kind, "warning");
    EXPECT_EQ(records[0].alertId, BIND_ALERT_ID);
    EXPECT_EQ(records[0].context.GetSourceFile(), "DataCore/UnboundDataObject");
    EXPECT_EQ(records[0].context.GetLine(), 266);
    const std::string signature = records[0].context.GetFunctionSignature();
    EXPECT_NE(signature.find("UnboundData::BindType"), std::string::npos) << signature;
    EXPECT_EQ(signature.find("lambda"), std::string::npos) << signature;
}

TEST(BindType, WrongRecordedSizeWarnsOnceAndGivesNothing)
{
    KivTest::ScopedAlertCollector alerts;
    UnboundData unbound("double", BytesOf<int>(5), false);
    EXPECT_FALSE(unbound.BindType<double>());
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 1u) << "a size warning, not also a failed assertion";
    EXPECT_EQ(records[0].kind, "warning");
    EXPECT_EQ(records[0].context.GetLine(), 259);
}

TEST(BindType, MatrixListWarnsOnceAndGivesAnUnfilledValue)
{
    KivTest::ScopedAlertCollector alerts;
    const std::string name = ValueTraits<FloatMatrixList>::TypeName();
    EXPECT_EQ(name, "vector<Matrix<float>>");
    UnboundData unbound(name, {1, 2, 3, 4}, false);
    const auto bound = unbound.BindType<FloatMatrixList>();
    ASSERT_TRUE(bound) << "kept on purpose";
    EXPECT_TRUE(BoundValue<FloatMatrixList>(bound).empty());
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].context.GetLine(), 253);
    EXPECT_EQ(records[0].message,
              "Attempted to bind unbound data to a " + name + " storing a " + name);
}

TEST(BindType, CorruptContentsOfAVariableSizeTypeAreAnError)
{
    struct Case
    {
        const char* name;
        std::string typeName;
        std::vector<char> bytes;
    };
    std::vector<char> matrixWithExtraByte = BytesOf<FloatMatrix>(FloatMatrix(1, 1));
    matrixWithExtraByte.push_back(0);
    std::vector<char> listCutShort = BytesOf<StringList>({"abc"});
    listCutShort.pop_back();
    const Case cases[] = {
        {"matrix with a byte too many", ValueTraits<FloatMatrix>::TypeName(), matrixWithExtraByte},
        {"list whose last text is cut", ValueTraits<StringList>::TypeName(), listCutShort},
        {"unit text longer than the value", ValueTraits<UnitizedDouble>::TypeName(),
         std::vector<char>(12, '\x7F')},
    };
    for (const auto& c : cases)
    {
        UnboundData unbound(c.typeName, c.bytes, false);
        EXPECT_THROW(BindSerializableType(unbound), Kiv::Core::IOError) << c.name;
    }
}

TEST(UnboundData, KeepsItsTypeNameBytesAndLockingWish)
{
    UnboundData unbound("SomeHostType", {'a', 'b'}, false);
    unsigned kind = 0;
    std::string name;
    unbound.DescribeType(kind, name);
    EXPECT_EQ(kind, KindUnbound);
    EXPECT_EQ(name, "SomeHostType");
    EXPECT_EQ(unbound.GetStoredSize(), 2u);
    EXPECT_FALSE(unbound.IsLockable());
    EXPECT_TRUE(unbound.EnableDataLocking());
    EXPECT_FALSE(unbound.EnableDataLocking());

    const auto copy = boost::dynamic_pointer_cast<UnboundData>(unbound.Clone());
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->GetContents(), unbound.GetContents());
    EXPECT_TRUE(copy->IsLockable());
    EXPECT_TRUE(copy->IsSameType(unbound));
    EXPECT_FALSE(UnboundData("Other", {}, false).IsSameType(unbound));
}

// Values of kind long were written where long has 32 bits: a 4-byte record named "long" binds,
// an 8-byte one (a 64-bit long) is a size mismatch.
TEST(BindType, LongIsAFourByteRecord)
{
    KivTest::ScopedAlertCollector alerts;
    UnboundData fourBytes("long", {'\xFE', '\xFF', '\xFF', '\x7F'}, false);
    const auto bound = fourBytes.BindType<HostLong>();
    ASSERT_TRUE(bound);
    EXPECT_EQ(BoundValue<HostLong>(bound), 0x7FFFFFFE);
    EXPECT_TRUE(alerts->Records().empty());

    UnboundData eightBytes("long", std::vector<char>(8, '\0'), false);
    EXPECT_FALSE(eightBytes.BindType<HostLong>());
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].context.GetLine(), 259) << "the size mismatch";
}
