#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include "Kiv/Core/UnitizedValue.h"

using namespace Kiv::Core;

namespace
{

// The stream state a header writer uses for unitized values.
std::ostringstream FourDecimals()
{
    std::ostringstream format;
    format.setf(std::ios::fixed, std::ios::floatfield);
    format.setf(std::ios::showpoint);
    format.precision(4);
    return format;
}

} // namespace

TEST(UnitsValue, KeepsTheNumberAndSharesTheDictionaryDescriptor)
{
    const UnitizedValue<double> rate(750.0, "\xB5m/s");
    const UnitizedValue<double> other(1.5, "\xB5m/s");
    EXPECT_EQ(rate.GetValue(), 750.0);
    EXPECT_EQ(rate.GetUnit(), other.GetUnit());
    EXPECT_EQ(rate.GetUnit(), UnitizedValueBase::sm_spGlobalDictionary->LookupUnit(
                                  "\xB5m/s", boost::shared_ptr<UnitDescriptor>()));
}

TEST(UnitsValue, ValueOnlyValuesHaveTheirOwnUnitlessDescriptors)
{
    const UnitizedValue<double> first(75.0);
    const UnitizedValue<double> second(75.0);
    ASSERT_TRUE(first.GetUnit() && second.GetUnit());
    EXPECT_NE(first.GetUnit(), second.GetUnit());
    for (const auto* value : {&first, &second})
    {
        EXPECT_TRUE(value->GetUnit()->IsUnitless());
        EXPECT_EQ(value->GetUnit()->GetAbbreviation(), "");
        EXPECT_EQ(value->GetUnit()->GetName(), "");
    }
}

TEST(UnitsValue, FormatsNumberBlankAndUnitAsTheSourceStreamSays)
{
    const struct
    {
        double value;
        const char* unit; // nullptr: the value-only constructor
        const char* text;
    } cases[] = {
        {0.3488, "\xB5m/V", "0.3488 \xB5m/V"},
        {75.0, "\xB5m", "75.0000 \xB5m"},
        {75.0, nullptr, "75.0000"},
        {0.00004, "\xB5m", "0.0000 \xB5m"},
        {-1.5, "nm/V", "-1.5000 nm/V"},
        {12345678.9, "\xB5m/s", "12345678.9000 \xB5m/s"},
        {1.0, " \xB5m ", "1.0000  \xB5m "},
    };
    const std::ostringstream format = FourDecimals();
    for (const auto& entry : cases)
    {
        const UnitizedValue<double> value = entry.unit
                                                ? UnitizedValue<double>(entry.value, entry.unit)
                                                : UnitizedValue<double>(entry.value);
        EXPECT_EQ(value.ToString(format), entry.text);
    }
}

TEST(UnitsValue, WidthPadsNumberAndUnitAsOneField)
{
    const UnitizedValue<double> coefficient(0.3488, "\xB5m/V");
    const UnitizedValue<double> bare(75.0);

    std::ostringstream right = FourDecimals();
    right.fill('_');
    right << std::setw(14) << coefficient << '|' << std::setw(10) << bare << '|';
    EXPECT_EQ(right.str(), "___0.3488 \xB5m/V|___75.0000|");

    std::ostringstream left = FourDecimals();
    left << std::left << std::setw(14) << coefficient << '|';
    EXPECT_EQ(left.str(), "0.3488 \xB5m/V   |");

    // ToString takes the width and the fill along.
    std::ostringstream source = FourDecimals();
    source.fill('*');
    source.width(13);
    EXPECT_EQ(coefficient.ToString(source), "**0.3488 \xB5m/V");
}

TEST(UnitsValue, AnUnknownUnitIsALogicErrorNamingTheText)
{
    for (const char* text : {"abc!", "", "10", "%%"})
    {
        SCOPED_TRACE(text);
        try
        {
            UnitizedValue<double> value(1.0, text);
            FAIL() << "constructed with unit " << value.GetUnit()->GetAbbreviation();
        }
        catch (const LogicError& error)
        {
            EXPECT_NE(dynamic_cast<const UnitizedValue<double>::XUnitNotFound*>(&error), nullptr);
            EXPECT_EQ(error.GetMessage(),
                      std::string(text) + " unit not found in the unit dictionary");
            EXPECT_EQ(error.GetSeverity(), SEVERITY_ERROR);
            EXPECT_EQ(error.GetAlertId(), "Kiv.Core.UnitizedValue");
            ASSERT_EQ(error.GetCallStack().size(), 1u);
            const CodeContext& where = error.GetCallStack().front();
            EXPECT_EQ(where.GetSourceFile(), "KivCore/UnitizedValue");
            EXPECT_EQ(where.GetLine(), 357);
            EXPECT_EQ(where.GetShortFunctionName(),
                      "Kiv::Core::UnitizedValue<double>::UnitizedValue");
        }
    }
}

TEST(UnitsValue, AnEmptyDescriptorIsRefused)
{
    EXPECT_THROW(UnitizedValue<double>(1.0, boost::shared_ptr<UnitDescriptor>()), LogicError);
}
