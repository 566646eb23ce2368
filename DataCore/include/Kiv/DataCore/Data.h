#pragma once

#include <new>
#include <string>
#include <typeinfo>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "Kiv/DataCore/DataObject.h"
#include "Kiv/DataCore/ValueTypes.h"

namespace Kiv::DataCore
{

// A value of type T held through a shared pointer that others may hold too: storing a
// wrapper makes later changes of the caller's T visible through the container.
template <class T>
class GenericWrapper : public MutexLockableDataObject
{
public:
    using ValueType = T;

    GenericWrapper() = default;
    explicit GenericWrapper(const boost::shared_ptr<T>& value) : m_Value(value) {}
    // Shares the value; the copy gets no serializer.
    GenericWrapper(const GenericWrapper& other)
        : MutexLockableDataObject(other), m_Value(other.GetDataReference())
    {
    }
    ~GenericWrapper() override = default;

    void DescribeType(unsigned& kind, std::string& name) const override
    {
        kind = ValueTraits<T>::Kind;
        name = GetTypeName();
    }
    std::string GetTypeName() const override { return ValueTraits<T>::TypeName(); }
    bool IsType(const std::type_info& type) const override { return type == typeid(T); }
    bool IsSameType(const DataObject& other) const override { return other.IsType(typeid(T)); }

    boost::shared_ptr<DataObject> Clone() const override
    {
        const auto lock = GetDataLock();
        try
        {
            return boost::shared_ptr<DataObject>(new GenericWrapper<T>(*this));
        }
        catch (const std::bad_alloc&)
        {
            return nullptr;
        }
    }

    // Makes the object share the caller's value. Telling the container is the caller's task.
    virtual void SetDataReference(const boost::shared_ptr<T>& value)
    {
        const auto lock = GetDataLock();
        m_Value = value;
    }
    virtual void CreateData() {}

    // The held value (possibly empty), read under the data lock.
    boost::shared_ptr<T> GetDataReference() const
    {
        const auto lock = GetDataLock();
        return m_Value;
    }

protected:
    boost::shared_ptr<T> m_Value;
    boost::shared_ptr<Serializer> m_Serializer;
};

// The owning value: it allocates its own T, copies deeply and creates its serializer on demand.
template <class T, class Base = GenericWrapper<T>>
class Data : public Base
{
public:
    Data() { this->m_Value = ValueTraits<T>::MakeDefault(); }
    explicit Data(const T& value) { this->m_Value = boost::make_shared<T>(value); }
    explicit Data(T&& value) { this->m_Value = boost::make_shared<T>(std::move(value)); }
    Data(const Data& other) : Base()
    {
        const auto lock = other.GetDataLock();
        this->m_Value =
            other.m_Value ? boost::make_shared<T>(*other.m_Value) : ValueTraits<T>::MakeDefault();
        if (other.m_Serializer)
        {
            CreateSerializer();
        }
        if (other.IsLockable())
        {
            this->EnableDataLocking();
        }
    }
    ~Data() override = default;

    bool EnableSerialization(bool enable) override
    {
        if (!enable)
        {
            this->m_Serializer.reset();
            return true;
        }
        CreateSerializer();
        return static_cast<bool>(this->m_Serializer);
    }
    boost::shared_ptr<Serializer> GetSerializer() const override { return this->m_Serializer; }

    boost::shared_ptr<DataObject> Clone() const override
    {
        const auto lock = this->GetDataLock();
        try
        {
            return boost::shared_ptr<DataObject>(new Data(*this));
        }
        catch (const std::bad_alloc&)
        {
            return nullptr;
        }
    }

    void CreateData() override { this->m_Value = ValueTraits<T>::MakeDefault(); }

    virtual void CreateSerializer()
    {
        if (!this->m_Serializer)
        {
            this->m_Serializer = ValueTraits<T>::MakeSerializer(*this);
        }
    }

    // Direct access for serializers, which hold the data lock while they use it.
    T& Value()
    {
        if (!this->m_Value)
        {
            CreateData();
        }
        return *this->m_Value;
    }
};

} // namespace Kiv::DataCore
