#include <stdexcept>

#include <gtest/gtest.h>

#include "CollectingAlertHandler.h"
#include "Kiv/Core/Error.h"
#include "Kiv/DataCore/ModuleTestSuite.h"

using Kiv::DataCore::ModuleTestSuite;

TEST(ModuleTestSuite, RunsEveryCheckInOrderAndTellsWhyOnesFailed)
{
    struct Case
    {
        const char* name;
        ModuleTestSuite::Check check;
        bool passed;
        const char* message;
    };
    const Case cases[] = {
        {"returns", [] {}, true, ""},
        {"FailCheck", [] { Kiv::DataCore::FailCheck("header has no [Data] line"); }, false,
         "header has no [Data] line"},
        {"CheckThat false", [] { Kiv::DataCore::CheckThat(false, "512 != 256"); }, false,
         "512 != 256"},
        {"CheckThat true", [] { Kiv::DataCore::CheckThat(true, "not shown"); }, true, ""},
        {"std exception", [] { throw std::out_of_range("index 9"); }, false, "index 9"},
        {"host error", [] { throw Kiv::Core::IOError("disk gone"); }, false, "disk gone"},
        {"anything else", [] { throw 42; }, false, "unknown exception"},
    };
    ModuleTestSuite suite("Pelrix samples");
    for (const auto& c : cases)
    {
        suite.AddCheck(c.name, c.check);
    }

    const auto results = suite.Run();
    ASSERT_EQ(results.size(), std::size(cases));
    for (std::size_t i = 0; i < results.size(); ++i)
    {
        EXPECT_EQ(results[i].check, cases[i].name);
        EXPECT_EQ(results[i].passed, cases[i].passed) << cases[i].name;
        EXPECT_EQ(results[i].message, cases[i].message) << cases[i].name;
    }
}

TEST(ModuleTestSuite, ListsChecksByNameAndRefusesAmbiguousOnes)
{
    ModuleTestSuite suite("Pelrix samples");
    EXPECT_EQ(suite.GetName(), "Pelrix samples");
    EXPECT_TRUE(suite.Run().empty());
    suite.AddCheck("opens topo", [] {});
    suite.AddCheck("opens force", [] {});
    EXPECT_EQ(suite.ListChecks(), (std::vector<std::string>{"opens topo", "opens force"}));

    KivTest::ScopedAlertCollector alerts;
    EXPECT_THROW(suite.AddCheck("opens topo", [] {}), Kiv::Core::LogicError);
    EXPECT_THROW(suite.AddCheck("empty", ModuleTestSuite::Check()), Kiv::Core::LogicError);
    EXPECT_EQ(suite.ListChecks().size(), 2u) << "a refused check is not added";
}
