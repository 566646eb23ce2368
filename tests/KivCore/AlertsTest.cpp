#include <gtest/gtest.h>

#include "CollectingAlertHandler.h"
#include "Kiv/Core/Error.h"
#include "Kiv/Core/Warning.h"

using namespace Kiv::Core;

namespace
{

std::size_t CountLevels(const std::string& ancestry)
{
    std::size_t levels = 0;
    for (std::size_t at = ancestry.find("=>"); at != std::string::npos;
         at = ancestry.find("=>", at + 2))
    {
        ++levels;
    }
    return levels;
}

} // namespace

TEST(Alerts, CoreErrorsCarryMessageAndSeverity)
{
    const AllocationFailed allocation("UnitDescriptor");
    EXPECT_EQ(allocation.GetMessage(), "Attempt to allocate UnitDescriptor failed");
    EXPECT_EQ(allocation.GetSeverity(), SEVERITY_ERROR);
    EXPECT_STREQ(allocation.what(), "Attempt to allocate UnitDescriptor failed");

    const IOError io("disk on fire");
    EXPECT_EQ(io.GetMessage(), "disk on fire");
    EXPECT_EQ(io.GetSeverity(), SEVERITY_ERROR);
}

TEST(Alerts, AncestryGrowsOneNamePerLevel)
{
    const std::string error = Error().GetData(Error::sINHERITANCE);
    const std::string os = OSError().GetData(Error::sINHERITANCE);
    const std::string allocation = AllocationFailed("x").GetData(Error::sINHERITANCE);
    EXPECT_EQ(CountLevels(error), 1u);
    EXPECT_EQ(CountLevels(os), 2u);
    EXPECT_EQ(CountLevels(allocation), 3u);
    EXPECT_EQ(os.rfind(error, 0), 0u) << "each level starts with its base's record";
    EXPECT_EQ(allocation.rfind(os, 0), 0u);
    EXPECT_NE(allocation.find(typeid(AllocationFailed).name()), std::string::npos);
}

TEST(Alerts, CloneAndThrowKeepTheExactClass)
{
    const AllocationFailed original("buffer");
    const boost::shared_ptr<Error> copy = original.Clone();
    ASSERT_TRUE(copy);
    EXPECT_NE(dynamic_cast<AllocationFailed*>(copy.get()), nullptr);
    EXPECT_EQ(copy->GetMessage(), original.GetMessage());

    const Error& asBase = original;
    EXPECT_THROW(asBase.Throw(), AllocationFailed);
}

TEST(Alerts, RaiseErrorRecordsContextTellsHandlerAndThrows)
{
    KivTest::ScopedAlertCollector alerts;
    const CodeContext context("KivCore/Somewhere", 42, "stamp", "Kiv::Core::F", "void F()");
    try
    {
        IOError("cannot read").RaiseError(context, "Kiv.Core.Test", false);
        FAIL() << "RaiseError returned";
    }
    catch (const IOError& caught)
    {
        EXPECT_EQ(caught.GetAlertId(), "Kiv.Core.Test");
        ASSERT_EQ(caught.GetCallStack().size(), 1u);
        EXPECT_EQ(caught.GetCallStack()[0].GetLine(), 42);
        EXPECT_EQ(caught.GetData(Error::sSOURCE_FILE), "KivCore/Somewhere");
    }
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].kind, "error");
    EXPECT_EQ(records[0].message, "cannot read");
    EXPECT_EQ(records[0].alertId, "Kiv.Core.Test");
}

TEST(Alerts, RaisingACaughtErrorAgainLeavesItsCallStackAlone)
{
    KivTest::ScopedAlertCollector alerts;
    const CodeContext inner("KivCore/Inner", 1, "", "Inner", "void Inner()");
    const CodeContext outer("KivCore/Outer", 2, "", "Outer", "void Outer()");
    try
    {
        IOError("cannot read").RaiseError(inner, "Kiv.Core.Test", false);
    }
    catch (const IOError& caught)
    {
        try
        {
            caught.RaiseError(outer, "Kiv.Core.Test", true);
        }
        catch (const IOError& again)
        {
            ASSERT_EQ(again.GetCallStack().size(), 2u);
            EXPECT_EQ(again.GetCallStack()[1].GetLine(), 2);
        }
        EXPECT_EQ(caught.GetCallStack().size(), 1u);
    }
}

TEST(Alerts, WarningsAndAssertionsReachTheHandlerAndReturn)
{
    KivTest::ScopedAlertCollector alerts;
    Warning().RaiseWarning(KIV_CODE_CONTEXT, "Kiv.Core.Test");
    EXPECT_TRUE(AssertFailed("x != 0", KIV_CODE_CONTEXT));
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].kind, "warning");
    EXPECT_EQ(records[1].kind, "assert");
    EXPECT_EQ(records[1].message, "x != 0");
    EXPECT_EQ(records[1].context.GetShortFunctionName(),
              "Alerts_WarningsAndAssertionsReachTheHandlerAndReturn_Test::TestBody");
}

TEST(Alerts, DefaultHandlerWritesOneLineNamingEverything)
{
    class Simple : public Warning
    {
    public:
        Simple() { SetData(sMESSAGE, "look out"); }
    };
    testing::internal::CaptureStderr();
    Simple().RaiseWarning(CodeContext("src/File.cpp", 7, "", "Ns::F", "void Ns::F()"), "Ns.Id");
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(line, "warning: look out [Ns.Id] at src/File.cpp:7 (Ns::F)\n");
}

TEST(Alerts, FormatFailureFallsBackAndSaysSoOnStderr)
{
    testing::internal::CaptureStderr();
    const std::string message = FormatAlertMessage("%1% and %2", "a", "b");
    const std::string stderrText = testing::internal::GetCapturedStderr();
    EXPECT_EQ(message, "Failed to construct alert message due to exception.");
    EXPECT_EQ(stderrText, "Failed to construct alert due to exception!\n");

    testing::internal::CaptureStderr();
    EXPECT_EQ(FormatAlertMessage("%1% of %2%", 3, "four"), "3 of four");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CodeContext, ShortFunctionNameStripsReturnTypeAndArguments)
{
    const struct
    {
        const char* signature;
        const char* expected;
    } cases[] = {
        {"bool Pelrix::PelrixDataFile::Open(const string&, int)", "Pelrix::PelrixDataFile::Open"},
        {"Kiv::Core::Lock::Lock(const Kiv::Core::IMutex*, const Kiv::Core::Elapse&)",
         "Kiv::Core::Lock::Lock"},
        {"boost::shared_ptr<Kiv::DataCore::DataObject> Kiv::DataCore::Data<T, W>::Clone() const "
         "[with T = int]",
         "Kiv::DataCore::Data<T, W>::Clone"},
        {"std::map<int, int> f<std::pair<int, int> >(int)", "f<std::pair<int, int> >"},
        {"void Ns::X::operator()(int)", "Ns::X::operator()"},
        {"", ""},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(ShortFunctionName(c.signature), c.expected) << c.signature;
    }
}
