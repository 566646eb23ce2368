#pragma once

#include <string>
#include <vector>

#include <boost/numeric/ublas/matrix.hpp>
#include <boost/shared_ptr.hpp>

#include "Kiv/Core/HostLong.h"
#include "Kiv/Core/UnitizedValue.h"
#include "Kiv/DataCore/DataObject.h"

namespace Kiv::DataCore
{

// The value types the data library knows how to describe, store and serialize.
using FloatMatrix = boost::numeric::ublas::matrix<float, boost::numeric::ublas::basic_row_major<>,
                                                  boost::numeric::ublas::unbounded_array<float>>;
using FloatMatrixList = std::vector<FloatMatrix>;
using StringList = std::vector<std::string>;
using UnitizedDouble = Kiv::Core::UnitizedValue<double>;
// Values of kind long: 32 bits wide, as the host's long is.
using HostLong = Kiv::Core::HostLong;

// What the library knows of each value type: its kind code, its type name (written with
// serialized values and compared when they are bound again), how a fresh value is made and
// which serializer it gets (none for a list of matrices).
template <class T>
struct ValueTraits;

#define KIV_DECLARE_VALUE_TRAITS(Type, KindCode)                                                   \
    template <>                                                                                    \
    struct ValueTraits<Type>                                                                       \
    {                                                                                              \
        static constexpr unsigned Kind = KindCode;                                                 \
        static std::string TypeName();                                                             \
        static boost::shared_ptr<Type> MakeDefault();                                              \
        static boost::shared_ptr<Serializer> MakeSerializer(DataObject& owner);                    \
    }

KIV_DECLARE_VALUE_TRAITS(int, KindInt);
KIV_DECLARE_VALUE_TRAITS(HostLong, KindLong);
KIV_DECLARE_VALUE_TRAITS(float, KindFloat);
KIV_DECLARE_VALUE_TRAITS(double, KindDouble);
KIV_DECLARE_VALUE_TRAITS(std::string, KindString);
KIV_DECLARE_VALUE_TRAITS(UnitizedDouble, KindUnitized);
KIV_DECLARE_VALUE_TRAITS(StringList, KindStringList);
KIV_DECLARE_VALUE_TRAITS(FloatMatrix, KindRawData);
KIV_DECLARE_VALUE_TRAITS(FloatMatrixList, KindNone);

#undef KIV_DECLARE_VALUE_TRAITS

} // namespace Kiv::DataCore
