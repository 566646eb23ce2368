#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <thread>
#include <vector>

#include <boost/weak_ptr.hpp>

#include "Kiv/Core/Error.h"
#include "Kiv/Core/UnitDescriptor.h"

using namespace Kiv::Core;

namespace
{

using DescriptorPtr = boost::shared_ptr<UnitDescriptor>;

const double DEGREE_IN_RADIANS = std::acos(-1.0) / 180.0;

DescriptorPtr Lookup(UnitDictionary& dictionary, const std::string& text)
{
    return dictionary.LookupUnit(text, DescriptorPtr());
}

// Sets an environment variable for one scope and puts the old value back afterwards.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char* name, const char* value) : m_Name(name)
    {
        if (const char* const old = std::getenv(name))
        {
            m_Old = old;
        }
        setenv(name, value, 1);
    }
    ~ScopedEnvironment()
    {
        if (m_Old)
        {
            setenv(m_Name, m_Old->c_str(), 1);
        }
        else
        {
            unsetenv(m_Name);
        }
    }

private:
    const char* m_Name;
    std::optional<std::string> m_Old;
};

struct Spelling
{
    const char* text;
    const char* asciiEquivalent;
    double oneInBaseUnits;
};

} // namespace

TEST(Units, EverySpellingOfTheSignsFindsTheRightUnit)
{
    const Spelling spellings[] = {
        {"\xB5m", "um", 1e-6},     // Latin-1 micro sign
        {"\xC2\xB5m", "um", 1e-6}, // UTF-8 micro sign
        {"\xCE\xBCm", "um", 1e-6}, // UTF-8 Greek mu
        {"um", "um", 1e-6},
        {"\xC5", "angstrom", 1e-10},         // Latin-1 A with ring
        {"\xC3\x85", "angstrom", 1e-10},     // UTF-8 A with ring
        {"\xE2\x84\xAB", "angstrom", 1e-10}, // UTF-8 angstrom sign
        {"angstrom", "angstrom", 1e-10},
        {"deg", "arcdeg", DEGREE_IN_RADIANS},
        {"\xB0", "arcdeg", DEGREE_IN_RADIANS},
        {"\xC2\xB0", "arcdeg", DEGREE_IN_RADIANS},
        {"deg/s", "arcdeg/s", DEGREE_IN_RADIANS},
        {"\xB0/s", "arcdeg/s", DEGREE_IN_RADIANS},
        {"\260C", "degC", 274.15}, // octal: a hex escape would swallow the C
        {"\302\260C", "degC", 274.15},
        {"\xB5m/s", "um/s", 1e-6},
        {"\xB5m/V", "um/V", 1e-6},
        {"\xC2\xB5m/V", "um/V", 1e-6},
        {"nm/V", "nm/V", 1e-9},
        {"N/m", "kg/s2", 1.0},
        {"%", "percent", 0.01},
    };
    UnitDictionary dictionary;
    for (const Spelling& spelling : spellings)
    {
        SCOPED_TRACE(spelling.text);
        const DescriptorPtr unit = Lookup(dictionary, spelling.text);
        ASSERT_TRUE(unit);
        EXPECT_EQ(unit->GetAbbreviation(), spelling.text);
        EXPECT_NEAR(unit->ConvertToBaseUnits(1.0), spelling.oneInBaseUnits,
                    1e-12 * spelling.oneInBaseUnits);
        const DescriptorPtr ascii = Lookup(dictionary, spelling.asciiEquivalent);
        ASSERT_TRUE(ascii);
        EXPECT_TRUE(*unit == *ascii);
    }
}

TEST(Units, EveryPrefixFromPicoToGigaOnTheCommonUnits)
{
    const struct
    {
        const char* prefix;
        double factor;
    } prefixes[] = {{"p", 1e-12}, {"n", 1e-9}, {"\xB5", 1e-6}, {"u", 1e-6}, {"m", 1e-3},
                    {"c", 1e-2},  {"d", 1e-1}, {"", 1.0},      {"da", 1e1}, {"h", 1e2},
                    {"k", 1e3},   {"M", 1e6},  {"G", 1e9}};
    // Each of these is one base-unit combination, so one of them is exactly 1 in base units.
    const char* const units[] = {"m", "V", "A", "s", "Hz", "N"};
    UnitDictionary dictionary;
    for (const char* unit : units)
    {
        const DescriptorPtr plain = Lookup(dictionary, unit);
        ASSERT_TRUE(plain) << unit;
        for (const auto& prefix : prefixes)
        {
            const std::string text = std::string(prefix.prefix) + unit;
            SCOPED_TRACE(text);
            const DescriptorPtr prefixed = Lookup(dictionary, text);
            ASSERT_TRUE(prefixed);
            EXPECT_NEAR(prefixed->ConvertToBaseUnits(1.0), prefix.factor, 1e-12 * prefix.factor);
            EXPECT_TRUE(prefixed->IsDimensionallyEquivalent(*plain));
        }
    }
}

TEST(Units, TextsThatNameNoUnitAreNotFound)
{
    const char* const texts[] = {"",     "   ",  "10",        "-3",   "12.5", "1e3", ".5",
                                 "0x1F", "abc!", "\xB5\xB5!", "m//s", "\xFF", "(m"};
    UnitDictionary dictionary;
    const DescriptorPtr fallback = boost::make_shared<UnitDescriptor>("fallback", "?");
    for (const char* text : texts)
    {
        EXPECT_EQ(dictionary.LookupUnit(text, fallback), fallback) << '"' << text << '"';
    }
}

TEST(Units, BlanksAroundAGoodUnitAreKeptButDoNotHideIt)
{
    UnitDictionary dictionary;
    for (const char* text : {" \xB5m ", "\tnm/V", "%  ", " \302\260C\r\n"})
    {
        SCOPED_TRACE(text);
        const DescriptorPtr unit = Lookup(dictionary, text);
        ASSERT_TRUE(unit);
        EXPECT_EQ(unit->GetAbbreviation(), text);
    }
    EXPECT_TRUE(*Lookup(dictionary, " \xB5m ") == *Lookup(dictionary, "um"));
}

TEST(Units, OneSharedDescriptorPerDistinctText)
{
    UnitDictionary dictionary;
    const DescriptorPtr first = Lookup(dictionary, "\xB5m/s");
    EXPECT_EQ(Lookup(dictionary, "\xB5m/s"), first);

    // Another spelling of the same unit is another text: equal, but its own descriptor, so
    // each writes back exactly as it was read.
    const DescriptorPtr ascii = Lookup(dictionary, "um/s");
    EXPECT_NE(ascii, first);
    EXPECT_TRUE(*ascii == *first);
    EXPECT_EQ(ascii->GetAbbreviation(), "um/s");
    EXPECT_EQ(first->GetAbbreviation(), "\xB5m/s");
}

TEST(Units, TheDictionaryForgetsTextsNoValueHolds)
{
    UnitDictionary dictionary;
    boost::weak_ptr<UnitDescriptor> dropped = Lookup(dictionary, "\xB5m/s");
    EXPECT_TRUE(dropped.expired()) << "the dictionary alone keeps no descriptor alive";
    EXPECT_TRUE(Lookup(dictionary, "\xB5m/s")) << "and finds the text again";

    // A hostile file may name any number of distinct units: what the dictionary keeps grows
    // with the units still held, not with every text it was ever asked for.
    std::vector<DescriptorPtr> held;
    for (int i = 1; i <= 100; ++i)
    {
        held.push_back(Lookup(dictionary, "m*" + std::to_string(i)));
        Lookup(dictionary, "\xB5m*" + std::to_string(i));
        for (int blanks = 1; blanks <= 9; ++blanks)
        {
            Lookup(dictionary, std::string(blanks, ' ') + "m*" + std::to_string(i));
        }
    }
    EXPECT_LT(dictionary.GetRememberedTextCount(), 500u);
    for (int i = 1; i <= 100; ++i)
    {
        ASSERT_TRUE(held[i - 1]);
        EXPECT_EQ(Lookup(dictionary, "m*" + std::to_string(i)), held[i - 1])
            << "a held descriptor is still the one shared";
    }
}

TEST(Units, ConvertsToAndFromBaseUnits)
{
    UnitDictionary dictionary;
    const DescriptorPtr rate = Lookup(dictionary, "\xB5m/s");
    EXPECT_DOUBLE_EQ(rate->ConvertToBaseUnits(1.0), 1e-6);
    EXPECT_DOUBLE_EQ(rate->ConvertFromBaseUnits(1e-6), 1.0);
    EXPECT_DOUBLE_EQ(rate->ConvertFromBaseUnits(rate->ConvertToBaseUnits(750.0)), 750.0);

    // An offset unit: the base is kelvin, so zero is not kept.
    const DescriptorPtr celsius = Lookup(dictionary, "\260C");
    EXPECT_DOUBLE_EQ(celsius->ConvertToBaseUnits(25.0), 298.15);
    EXPECT_DOUBLE_EQ(celsius->ConvertFromBaseUnits(273.15), 0.0);

    const UnitDescriptor unitless("", "");
    EXPECT_EQ(unitless.ConvertToBaseUnits(0.3488), 0.3488);
    EXPECT_EQ(unitless.ConvertFromBaseUnits(-7.0), -7.0);
}

TEST(Units, ComparisonsFollowTheUnitsNotTheTexts)
{
    const struct
    {
        const char* left;
        const char* right; // empty: a descriptor without a unit
        bool equal;
        bool equivalent;
    } cases[] = {
        {"um", "\xB5m", true, true}, {"\xB5m", "nm", false, true}, {"N/m", "kg/s2", true, true},
        {"m", "s", false, false},    {"%", "", false, true},       {"m/m", "", true, true},
        {"rad", "", false, true},    {"V", "", false, false},      {"", "", true, true},
    };
    UnitDictionary dictionary;
    const auto descriptorFor = [&dictionary](const std::string& text) {
        return text.empty() ? boost::make_shared<UnitDescriptor>("", "") : Lookup(dictionary, text);
    };
    for (const auto& pair : cases)
    {
        SCOPED_TRACE(std::string(pair.left) + " vs " + pair.right);
        const DescriptorPtr left = descriptorFor(pair.left);
        const DescriptorPtr right = descriptorFor(pair.right);
        ASSERT_TRUE(left && right);
        EXPECT_EQ(*left == *right, pair.equal);
        EXPECT_EQ(*right == *left, pair.equal);
        EXPECT_EQ(*left != *right, !pair.equal);
        EXPECT_EQ(left->IsDimensionallyEquivalent(*right), pair.equivalent);
        EXPECT_EQ(left->RequiresConversion(*right), pair.equivalent && !pair.equal);
    }
}

TEST(Units, OnlyTheNumberOneIsUnitless)
{
    UnitDictionary dictionary;
    EXPECT_TRUE(UnitDescriptor("", "").IsUnitless());
    EXPECT_TRUE(Lookup(dictionary, "m/m")->IsUnitless());
    EXPECT_FALSE(Lookup(dictionary, "%")->IsUnitless());
    EXPECT_FALSE(Lookup(dictionary, "rad")->IsUnitless());
    EXPECT_FALSE(Lookup(dictionary, "\xB5m")->IsUnitless());
}

TEST(Units, NamesComeFromTheUnitLibrary)
{
    UnitDictionary dictionary;
    EXPECT_EQ(Lookup(dictionary, "Hz")->GetName(), "hertz");
    EXPECT_EQ(Lookup(dictionary, "km")->GetName(), "1000 meter");
    EXPECT_EQ(UnitDescriptor("", "").GetName(), "");
}

TEST(Units, ProductsAndQuotientsCombineUnitsAndTexts)
{
    UnitDictionary dictionary;
    const DescriptorPtr metre = Lookup(dictionary, "m");
    const DescriptorPtr second = Lookup(dictionary, "s");
    const DescriptorPtr perVolt = Lookup(dictionary, "\xB5m/V");
    const UnitDescriptor unitless("", "");

    const DescriptorPtr speed = *metre / *second;
    EXPECT_EQ(speed->GetAbbreviation(), "m/s");
    EXPECT_TRUE(*speed == *Lookup(dictionary, "m/s"));

    const DescriptorPtr area = *metre * *metre;
    EXPECT_EQ(area->GetAbbreviation(), "m*m");
    EXPECT_TRUE(*area == *Lookup(dictionary, "m2"));

    // A compound side stays one factor.
    const DescriptorPtr perVoltSecond = *perVolt / *second;
    EXPECT_EQ(perVoltSecond->GetAbbreviation(), "(\xB5m/V)/s");
    EXPECT_TRUE(*perVoltSecond == *Lookup(dictionary, "um/(V*s)"));
    EXPECT_TRUE(*Lookup(dictionary, perVoltSecond->GetAbbreviation()) == *perVoltSecond);
    EXPECT_EQ((*second / *perVolt)->GetAbbreviation(), "s/(\xB5m/V)");

    const DescriptorPtr frequency = unitless / *second;
    EXPECT_EQ(frequency->GetAbbreviation(), "1/s");
    EXPECT_TRUE(*frequency == *Lookup(dictionary, "Hz"));
    EXPECT_EQ((*metre * unitless)->GetAbbreviation(), "m");
    EXPECT_TRUE((unitless * unitless)->IsUnitless());

    // In place, on a copy: the dictionary's descriptor is shared by every value of its text.
    const DescriptorPtr copy = metre->MakeCopy();
    *copy /= *second;
    *copy *= *second;
    EXPECT_EQ(copy->GetAbbreviation(), "(m/s)*s");
    EXPECT_TRUE(*copy == *metre);
    EXPECT_EQ(metre->GetAbbreviation(), "m");

    *copy = *perVolt;
    EXPECT_EQ(copy->GetAbbreviation(), "\xB5m/V");
    EXPECT_TRUE(*copy == *perVolt);
}

TEST(Units, UnitsOfTwoDictionariesCannotBeCombined)
{
    UnitDictionary first;
    UnitDictionary second;
    const DescriptorPtr metre = Lookup(first, "m");
    const DescriptorPtr otherSecond = Lookup(second, "s");
    EXPECT_THROW(*metre / *otherSecond, LogicError);
    EXPECT_THROW(*metre *= *otherSecond, LogicError);
    EXPECT_EQ(metre->GetAbbreviation(), "m") << "a failed product leaves the unit as it was";
}

TEST(Units, AMissingUnitDatabaseIsAnErrorAtTheFirstLookup)
{
    UnitDictionary dictionary; // reads nothing yet
    {
        const ScopedEnvironment path("UDUNITS2_XML_PATH", "/nonexistent/udunits2.xml");
        try
        {
            Lookup(dictionary, "m");
            FAIL() << "expected an IOError";
        }
        catch (const IOError& error)
        {
            EXPECT_NE(error.GetMessage().find("/nonexistent/udunits2.xml"), std::string::npos)
                << error.GetMessage();
        }
    }
    EXPECT_TRUE(Lookup(dictionary, "m")) << "the next look-up tries again";
}

TEST(Units, LookupsFromSeveralThreadsAgree)
{
    const std::vector<std::string> texts = {"\xB5m", "\xB5m/s", "\xB5m/V", "nm/V", "N/m", "%",
                                            "\xC5",  "\xB0",    "mV",      "kHz",  "nA",  "bad!"};
    const int threadCount = 4;
    const int rounds = 200;
    UnitDictionary dictionary; // fresh, so the threads also race to load the database
    std::vector<std::vector<DescriptorPtr>> seen(threadCount);
    std::atomic<int> waiting{threadCount};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
    {
        threads.emplace_back(
            [&, thread]
            {
                --waiting;
                while (waiting > 0)
                {
                    std::this_thread::yield();
                }
                for (int round = 0; round < rounds; ++round)
                {
                    for (const std::string& text : texts)
                    {
                        seen[thread].push_back(Lookup(dictionary, text));
                    }
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    for (std::size_t index = 0; index < texts.size(); ++index)
    {
        const DescriptorPtr expected = Lookup(dictionary, texts[index]);
        EXPECT_EQ(static_cast<bool>(expected), texts[index] != "bad!") << texts[index];
        for (const auto& results : seen)
        {
            ASSERT_EQ(results.size(), texts.size() * rounds);
            for (int round = 0; round < rounds; ++round)
            {
                ASSERT_EQ(results[round * texts.size() + index], expected) << texts[index];
            }
        }
    }
}
