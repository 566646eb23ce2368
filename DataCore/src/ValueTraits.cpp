#include "Kiv/DataCore/ValueTypes.h"

#include <boost/make_shared.hpp>

#include "Kiv/Core/CodeContext.h"
#include "Kiv/Core/Error.h"
#include "Kiv/DataCore/BuiltInSerializers.h"
#include "Kiv/DataCore/Data.h"

namespace Kiv::DataCore
{

namespace
{
// A serializer is only ever made for the Data<T> that asks for it; anything else is a bug in
// the caller, and binding a serializer to the wrong object would corrupt memory.
template <class T>
Data<T>& OwnerOf(DataObject& owner)
{
    auto* data = dynamic_cast<Data<T>*>(&owner);
    if (data == nullptr)
    {
        Kiv::Core::LogicError("a serializer for " + ValueTraits<T>::TypeName() +
                              " was asked for by a value of type " + owner.GetTypeName())
            .RaiseError(KIV_CODE_CONTEXT, "Kiv.DataCore.ValueTraits", false);
    }
    return *data;
}
} // namespace

// Fixed names rather than typeid(T).name(): the names are written with serialized values and
// must read back the same with any compiler.
std::string ValueTraits<int>::TypeName()
{
    return "int";
}

std::string ValueTraits<HostLong>::TypeName()
{
    return "long";
}

std::string ValueTraits<float>::TypeName()
{
    return "float";
}

std::string ValueTraits<double>::TypeName()
{
    return "double";
}

std::string ValueTraits<std::string>::TypeName()
{
    return "AsciiString";
}

std::string ValueTraits<UnitizedDouble>::TypeName()
{
    return "TUnitized";
}

std::string ValueTraits<StringList>::TypeName()
{
    return "vector<string>";
}

std::string ValueTraits<FloatMatrix>::TypeName()
{
    return "Matrix<" + ValueTraits<float>::TypeName() + ">";
}

std::string ValueTraits<FloatMatrixList>::TypeName()
{
    return "vector<" + ValueTraits<FloatMatrix>::TypeName() + ">";
}

boost::shared_ptr<int> ValueTraits<int>::MakeDefault()
{
    return boost::make_shared<int>(0);
}

boost::shared_ptr<HostLong> ValueTraits<HostLong>::MakeDefault()
{
    return boost::make_shared<HostLong>();
}

boost::shared_ptr<float> ValueTraits<float>::MakeDefault()
{
    return boost::make_shared<float>(0.0f);
}

boost::shared_ptr<double> ValueTraits<double>::MakeDefault()
{
    return boost::make_shared<double>(0.0);
}

boost::shared_ptr<std::string> ValueTraits<std::string>::MakeDefault()
{
    return boost::make_shared<std::string>();
}

boost::shared_ptr<UnitizedDouble> ValueTraits<UnitizedDouble>::MakeDefault()
{
    return boost::make_shared<UnitizedDouble>(0.0);
}

boost::shared_ptr<StringList> ValueTraits<StringList>::MakeDefault()
{
    return boost::make_shared<StringList>();
}

boost::shared_ptr<FloatMatrix> ValueTraits<FloatMatrix>::MakeDefault()
{
    return boost::make_shared<FloatMatrix>(0, 0);
}

boost::shared_ptr<FloatMatrixList> ValueTraits<FloatMatrixList>::MakeDefault()
{
    return boost::make_shared<FloatMatrixList>();
}

boost::shared_ptr<Serializer> ValueTraits<int>::MakeSerializer(DataObject& owner)
{
    return boost::make_shared<BasicBuiltInSerializer<Data<int>>>(OwnerOf<int>(owner));
}

boost::shared_ptr<Serializer> ValueTraits<HostLong>::MakeSerializer(DataObject& owner)
{
    return boost::make_shared<BasicBuiltInSerializer<Data<HostLong>>>(OwnerOf<HostLong>(owner));
}

boost::shared_ptr<Serializer> ValueTraits<float>::MakeSerializer(DataObject& owner)
{
    return boost::make_shared<BasicBuiltInSerializer<Data<float>>>(OwnerOf<float>(owner));
}

boost::shared_ptr<Serializer> ValueTraits<double>::MakeSerializer(DataObject& owner)
{
    return boost::make_shared<BasicBuiltInSerializer<Data<double>>>(OwnerOf<double>(owner));
}

boost::shared_ptr<Serializer> ValueTraits<std::string>::MakeSerializer(DataObject& owner)
{
    return boost::make_shared<StringSerializer<Data<std::string>>>(OwnerOf<std::string>(owner));
}

boost::shared_ptr<Serializer> ValueTraits<UnitizedDouble>::MakeSerializer(DataObject& owner)
{
    return boost::make_shared<TUnitizedSerializer>(OwnerOf<UnitizedDouble>(owner));
}

boost::shared_ptr<Serializer> ValueTraits<StringList>::MakeSerializer(DataObject& owner)
{
    return boost::make_shared<StringContainerSerializer<StringList>>(OwnerOf<StringList>(owner));
}

boost::shared_ptr<Serializer> ValueTraits<FloatMatrix>::MakeSerializer(DataObject& owner)
{
    return boost::make_shared<BuiltInMatrixSerializer<FloatMatrix>>(OwnerOf<FloatMatrix>(owner));
}

// A list of matrices is never serialized: it has no serializer at all.
boost::shared_ptr<Serializer> ValueTraits<FloatMatrixList>::MakeSerializer(DataObject&)
{
    return nullptr;
}

} // namespace Kiv::DataCore
