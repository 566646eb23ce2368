#include <gtest/gtest.h>

#include <functional>

#include "CollectingAlertHandler.h"
#include "Kiv/DataCore/Alerts.h"

using namespace Kiv::DataCore;

namespace
{
const char* const FALLBACK = "Failed to construct alert message due to exception.";

struct MessageCase
{
    const char* name;
    std::function<Kiv::Core::AlertInfo*()> make;
    const char* message;
    Kiv::Core::ESeverity severity;
    bool fallsBack;
};
} // namespace

TEST(DataCoreAlerts, EveryMessageAndSeverity)
{
    const MessageCase cases[] = {
        {"IOError", [] { return new IOError(); }, "DataCore Generic IO Error",
         Kiv::Core::SEVERITY_ERROR, false},
        {"DataFileError", [] { return new DataFileError("bad header"); }, "bad header",
         Kiv::Core::SEVERITY_ERROR, false},
        {"DataFileErrorKeepsPercent", [] { return new DataFileError("100% full"); }, "100% full",
         Kiv::Core::SEVERITY_ERROR, false},
        {"ClosedDataFileError",
         [] { return new ClosedDataFileError("Clear() called on an unopened Pelrix Data file"); },
         "Clear() called on an unopened Pelrix Data file", Kiv::Core::SEVERITY_ERROR, false},
        {"PutNullDataPtr", [] { return new PutNullDataPtr("ScanRangeX"); },
         "Attempted to store a NULL shared ptr as data under key ScanRangeX",
         Kiv::Core::SEVERITY_WARNING, false},
        {"NullSerializerForDataBind",
         [] { return new NullSerializerForDataBind("vector<M>", "vector<M>"); },
         "Attempted to bind unbound data to a vector<M> storing a vector<M>",
         Kiv::Core::SEVERITY_WARNING, false},
        {"UnboundTypeMismatch", [] { return new UnboundTypeMismatch("int", "double"); }, FALLBACK,
         Kiv::Core::SEVERITY_WARNING, true},
        {"UnboundSizeMismatch", [] { return new UnboundSizeMismatch(4, 8); }, FALLBACK,
         Kiv::Core::SEVERITY_WARNING, true},
    };
    for (const auto& c : cases)
    {
        testing::internal::CaptureStderr();
        std::unique_ptr<Kiv::Core::AlertInfo> alert(c.make());
        const std::string stderrText = testing::internal::GetCapturedStderr();
        EXPECT_EQ(alert->GetMessage(), c.message) << c.name;
        EXPECT_EQ(alert->GetSeverity(), c.severity) << c.name;
        EXPECT_EQ(stderrText, c.fallsBack ? "Failed to construct alert due to exception!\n" : "")
            << c.name;
    }
}

template <class Caught>
bool RaisedErrorIsCaughtAs()
{
    try
    {
        ClosedDataFileError("Clear() called on an unopened Pelrix Data file")
            .RaiseError(KIV_CODE_CONTEXT, "Tarvo.PelrixFile", false);
    }
    catch (const Caught& caught)
    {
        return std::string(caught.what()) == "Clear() called on an unopened Pelrix Data file";
    }
    catch (...)
    {
    }
    return false;
}

TEST(DataCoreAlerts, ClosedFileErrorIsCaughtByEveryBase)
{
    KivTest::ScopedAlertCollector alerts;
    EXPECT_TRUE(RaisedErrorIsCaughtAs<ClosedDataFileError>());
    EXPECT_TRUE(RaisedErrorIsCaughtAs<DataFileError>());
    EXPECT_TRUE(RaisedErrorIsCaughtAs<IOError>());
    EXPECT_TRUE(RaisedErrorIsCaughtAs<Kiv::Core::IOError>());
    EXPECT_TRUE(RaisedErrorIsCaughtAs<Kiv::Core::Error>());
    EXPECT_TRUE(RaisedErrorIsCaughtAs<std::exception>());
    EXPECT_EQ(alerts->Count("error"), 6u);
}

TEST(DataCoreAlerts, ClosedFileErrorIsAnAlertInfo)
{
    try
    {
        ClosedDataFileError("x").Throw();
    }
    catch (const Kiv::Core::AlertInfo& alert)
    {
        EXPECT_EQ(alert.GetMessage(), "x");
        return;
    }
    FAIL() << "not caught as AlertInfo";
}

TEST(DataCoreAlerts, ClosedFileErrorAppendsThreeNamesAfterTheHostsOwn)
{
    const std::string host = Kiv::Core::IOError().GetData(Kiv::Core::Error::sINHERITANCE);
    const std::string closed = ClosedDataFileError("x").GetData(Kiv::Core::Error::sINHERITANCE);
    ASSERT_EQ(closed.rfind(host, 0), 0u);
    const std::string appended = closed.substr(host.size());
    EXPECT_EQ(appended, std::string("=>") + typeid(IOError).name() + "=>" +
                            typeid(DataFileError).name() + "=>" +
                            typeid(ClosedDataFileError).name());
}
