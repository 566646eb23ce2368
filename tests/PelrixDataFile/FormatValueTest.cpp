#include <gtest/gtest.h>

#include <functional>
#include <locale>

#include "CollectingAlertHandler.h"
#include "WriteTestFiles.h"

using namespace WriteTest;

namespace
{

struct FormatCase
{
    const char* name;
    std::function<void(DataContainer&)> store; // puts the value under "Key"
    std::string expected;
};

std::string Formatted(const FormatCase& formatCase)
{
    const auto section = boost::make_shared<DataContainer>();
    formatCase.store(*section);
    return PelrixDataFile().GetFormattedValueString(section, "Key");
}

void PutUnitized(DataContainer& section, double value, const std::string& unit)
{
    section.Put("Key", UnitizedDouble(value, unit));
}

} // namespace

TEST(FormatValue, EachValueTypeHasItsFixedTextForm)
{
    const FormatCase cases[] = {
        {"text byte for byte", [](DataContainer& s) { s.Put("Key", "750.0000 \xB5m/s"); },
         "750.0000 \xB5m/s"},
        {"text keeps trailing blanks", [](DataContainer& s) { s.Put("Key", "  Kiv 1.0   "); },
         "  Kiv 1.0   "},
        {"empty text", [](DataContainer& s) { s.Put("Key", ""); }, ""},
        {"unitized 75 um", [](DataContainer& s) { PutUnitized(s, 75.0, "\xB5m"); },
         "75.0000 \xB5m"},
        {"unitized rounds to four decimals",
         [](DataContainer& s) { PutUnitized(s, 0.00004, "\xB5m"); }, "0.0000 \xB5m"},
        {"unitized negative", [](DataContainer& s) { PutUnitized(s, -1.5, "V"); }, "-1.5000 V"},
        {"unitized never in exponent form",
         [](DataContainer& s) { PutUnitized(s, 12345678.9, "\xB5m"); }, "12345678.9000 \xB5m"},
        {"unitized compound unit", [](DataContainer& s) { PutUnitized(s, 0.3488, "\xB5m/V"); },
         "0.3488 \xB5m/V"},
        {"unitized without a unit has no trailing blank",
         [](DataContainer& s) { s.Put("Key", UnitizedDouble(75.0)); }, "75.0000"},
        {"long", [](DataContainer& s) { s.Put<HostLong>("Key", 512); }, "512"},
        {"negative long", [](DataContainer& s) { s.Put<HostLong>("Key", -2048); }, "-2048"},
        {"int", [](DataContainer& s) { s.Put<int>("Key", -3); }, "-3"},
        {"double", [](DataContainer& s) { s.Put<double>("Key", 0.1); }, "0.1"},
        {"float without trailing zeros", [](DataContainer& s) { s.Put<float>("Key", 1.0f); }, "1"},
        {"float fraction", [](DataContainer& s) { s.Put<float>("Key", 0.5f); }, "0.5"},
        {"double with six significant digits",
         [](DataContainer& s) { s.Put<double>("Key", 123456.0); }, "123456"},
        // General notation turns to an exponent at seven integer digits. The format's home
        // platform writes three exponent digits ("1.23457e+006"); this one writes the C
        // library's two, which the reader accepts as well.
        {"double switches to exponent form",
         [](DataContainer& s) { s.Put<double>("Key", 1234567.0); }, "1.23457e+06"},
        {"small double in exponent form", [](DataContainer& s) { s.Put<double>("Key", 0.00001); },
         "1e-05"},
    };
    for (const auto& formatCase : cases)
    {
        EXPECT_EQ(Escaped(Formatted(formatCase)), Escaped(formatCase.expected)) << formatCase.name;
    }
}

// Each value gets a fresh stream: the fixed four decimals of a unitized value must not leak
// into the number formatted next.
TEST(FormatValue, UnitizedFormattingDoesNotCarryOverToTheNextValue)
{
    const auto section = boost::make_shared<DataContainer>();
    section->Put("Range", UnitizedDouble(75.0, "\xB5m"));
    section->Put<double>("Gain", 0.1);
    PelrixDataFile file;
    EXPECT_EQ(file.GetFormattedValueString(section, "Range"), "75.0000 \xB5m");
    EXPECT_EQ(file.GetFormattedValueString(section, "Gain"), "0.1");
}

// Hexadecimal input is not preserved: only the digits after "0x" count, so "0x1F" reads as
// 16 and is written back as "16".
TEST(FormatValue, HexadecimalHeaderNumberIsWrittenBackInDecimal)
{
    ScratchFolder folder;
    const std::string header = "[Data Parameters]\r\nColor Table Index=0x1F\r\n\r\n[Data]\r\n";
    const auto file = OpenFile(folder.Write("hex.flt", header), DataFile::ACCESS_READ);
    const auto section = file->GetSubData({"[Data Parameters]"}, false);
    ASSERT_TRUE(section);
    EXPECT_EQ(file->GetFormattedValueString(section, "Color Table Index"), "16");
}

TEST(FormatValue, ValueOfAnotherTypeRaisesUnknownValueType)
{
    struct UnknownCase
    {
        const char* name;
        std::function<void(DataContainer&)> store;
    };
    const UnknownCase cases[] = {
        {"float matrix", [](DataContainer& s) { s.Put("Key", FloatMatrix(2, 3)); }},
        {"list of texts",
         [](DataContainer& s) {
             s.Put("Key", StringList{"a", "b"});
         }},
        {"list of matrices", [](DataContainer& s) { s.Put("Key", FloatMatrixList(1)); }},
        {"nested container", [](DataContainer& s) { s.GetSubData({"Key"}, true); }},
        {"missing key", [](DataContainer&) {}},
    };
    for (const auto& unknownCase : cases)
    {
        KivTest::ScopedAlertCollector alerts;
        const auto section = boost::make_shared<DataContainer>();
        unknownCase.store(*section);
        try
        {
            PelrixDataFile().GetFormattedValueString(section, "Key");
            ADD_FAILURE() << unknownCase.name << ": no error raised";
        }
        catch (const Kiv::DataCore::DataFileError& error)
        {
            // The message names another format's class and misspells the function; programs
            // match on that text, so it is kept.
            EXPECT_EQ(error.GetMessage(),
                      "ERROR: Unknown value type in HalvimoorDataFile::GetFormatedValueString. "
                      "Key: Key")
                << unknownCase.name;
            EXPECT_EQ(error.GetAlertId(), "PelrixDataFile") << unknownCase.name;
            EXPECT_EQ(alerts->Count("error"), 1u) << unknownCase.name;
        }
    }
}

namespace
{
// A locale that groups thousands and writes a decimal comma, as a host program may install.
struct CommaDecimals : std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

class GlobalLocale
{
public:
    explicit GlobalLocale(const std::locale& locale) : m_Previous(std::locale::global(locale)) {}
    ~GlobalLocale() { std::locale::global(m_Previous); }

private:
    std::locale m_Previous;
};
} // namespace

// Headers are read back with atol and sscanf, so the program's locale must not reach them.
TEST(FormatValue, TheProgramsLocaleDoesNotChangeTheText)
{
    GlobalLocale comma(std::locale(std::locale::classic(), new CommaDecimals));
    const FormatCase cases[] = {
        {"long", [](DataContainer& s) { s.Put<HostLong>("Key", 1234567); }, "1234567"},
        {"double", [](DataContainer& s) { s.Put<double>("Key", 1234.5); }, "1234.5"},
        {"unitized", [](DataContainer& s) { PutUnitized(s, 10000.0, "\xB5m"); },
         "10000.0000 \xB5m"},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(Formatted(c), c.expected) << c.name;
    }
}
