#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "CollectingAlertHandler.h"
#include "Kiv/DataCore/DataContainer.h"

using namespace Kiv::DataCore;

namespace
{
// Records the change reports that reach it.
class RecordingContainer : public DataContainer
{
public:
    std::vector<std::string> values;
    std::vector<std::string> references;

protected:
    void OnDataValueChanged(const std::string& key, boost::shared_ptr<DataObject>) override
    {
        values.push_back(key);
    }
    void OnDataReferenceChanged(const std::string& key, boost::shared_ptr<DataObject>) override
    {
        references.push_back(key);
    }
};

// A container whose protected way in is open to the tests; it records the keys put through it.
class OpenContainer : public RecordingContainer
{
public:
    std::vector<std::string> putKeys;

    void PutDataObject(const std::string& key, boost::shared_ptr<DataObject> object) override
    {
        putKeys.push_back(key);
        DataContainer::PutDataObject(key, std::move(object));
    }
};

std::vector<std::string> Keys(const DataContainer& container)
{
    std::vector<std::string> keys;
    container.EnumData(keys);
    return keys;
}
} // namespace

TEST(Container, TypedGetCopiesOrLeavesTheVariableUntouched)
{
    DataContainer container;
    container.Put<HostLong>("ResolutionX", 512);
    container.Put("Leveling", "None");

    HostLong resolution = -1;
    EXPECT_TRUE(container.Get("ResolutionX", resolution));
    EXPECT_EQ(resolution, 512);

    HostLong untouched = 77;
    EXPECT_FALSE(container.Get("Missing", untouched));
    EXPECT_EQ(untouched, 77);
    int otherType = 78;
    EXPECT_FALSE(container.Get("ResolutionX", otherType)) << "a long is not an int";
    EXPECT_EQ(otherType, 78);
    std::string text;
    EXPECT_TRUE(container.Get("Leveling", text));
    EXPECT_EQ(text, "None");
}

TEST(Container, KeysKeepInsertionOrderAcrossReplacement)
{
    DataContainer container;
    for (const char* key : {"b", "c", "a"})
    {
        container.Put<int>(key, 1);
    }
    container.Put("c", "now text");
    EXPECT_EQ(Keys(container), (std::vector<std::string>{"b", "c", "a"}));

    std::set<std::string> sorted;
    container.EnumData(sorted);
    EXPECT_EQ(sorted, (std::set<std::string>{"a", "b", "c"}));

    container.Remove("b");
    container.Put<int>("b", 2);
    EXPECT_EQ(Keys(container), (std::vector<std::string>{"c", "a", "b"}));
    EXPECT_EQ(container.NumDataObjects(), 3u);
}

TEST(Container, PutReferenceRepointsASameTypeEntryAndReplacesAnother)
{
    DataContainer container;
    const auto first = boost::make_shared<FloatMatrix>(2, 3);
    container.PutReference("RawData", first, false);
    const auto stored = container.Get("RawData");

    const auto second = boost::make_shared<FloatMatrix>(4, 5);
    container.PutReference("RawData", second, true);
    EXPECT_EQ(container.Get("RawData"), stored) << "same object, re-pointed";
    EXPECT_EQ(container.GetShared<FloatMatrix>("RawData"), second);
    EXPECT_TRUE(stored->IsLockable());

    container.Put("Other", "text");
    container.PutReference("Other", second, false);
    EXPECT_TRUE(container.Get("Other")->IsType(typeid(FloatMatrix))) << "text replaced";

    (*second)(0, 0) = 42.0f;
    FloatMatrix copy;
    ASSERT_TRUE(container.Get("RawData", copy));
    EXPECT_EQ(copy(0, 0), 42.0f) << "the caller's changes are seen through the container";
}

TEST(Container, PutReferenceOfNothingWarnsAndStoresNothing)
{
    KivTest::ScopedAlertCollector alerts;
    DataContainer container;
    container.PutReference("ScanRangeX", boost::shared_ptr<double>(), false);
    EXPECT_FALSE(container.Exists("ScanRangeX"));
    const auto records = alerts->Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].kind, "warning");
    EXPECT_EQ(records[0].message,
              "Attempted to store a NULL shared ptr as data under key ScanRangeX");
    EXPECT_EQ(records[0].alertId, "Kiv.DataCore.DataContainer.Put");
    EXPECT_EQ(records[0].context.GetSourceFile(), "DataCore/DataContainer");
    EXPECT_EQ(records[0].context.GetLine(), 987);
    EXPECT_EQ(records[0].context.GetShortFunctionName(),
              "Kiv::DataCore::DataContainer::PutReference");
}

TEST(Container, GetSubDataCreatesOnlyWhenAsked)
{
    DataContainer root;
    EXPECT_FALSE(root.GetSubData({"[Data]"}, false));
    EXPECT_FALSE(root.Exists("[Data]"));
    const auto leaf = root.GetSubData({"a", "b", "c"}, true);
    ASSERT_TRUE(leaf);
    EXPECT_EQ(root.GetSubData({"a", "b", "c"}, false), leaf);
    EXPECT_EQ(root.GetSubData({}, false), nullptr);

    root.Put("value", "text");
    EXPECT_FALSE(root.GetSubData({"value", "x"}, true)) << "a value is not a container";
    EXPECT_TRUE(root.Get("value")->IsType(typeid(std::string)));
}

TEST(Container, EveryKindOfChangeReachesTheTopOfTheTree)
{
    RecordingContainer top;
    const auto middle = top.GetSubData({"middle"}, true);
    const auto bottom = middle->GetSubData({"bottom"}, true);
    top.values.clear();

    bottom->Put<int>("v", 1);
    EXPECT_EQ(top.values, std::vector<std::string>{"middle"}) << "a value put";

    bottom->PutReference("r", boost::make_shared<int>(1), false);
    top.values.clear();
    bottom->PutReference("r", boost::make_shared<int>(2), false);
    EXPECT_EQ(top.references, std::vector<std::string>{"middle"}) << "a reference re-pointed";
    EXPECT_TRUE(top.values.empty());

    for (auto change :
         {+[](DataContainer& c) { c.Remove("v"); }, +[](DataContainer& c) { c.Clear(); }})
    {
        bottom->Put<int>("v", 1);
        top.values.clear();
        change(*bottom);
        EXPECT_FALSE(top.values.empty()) << "a removal or a clear";
    }

    top.values.clear();
    bottom->Put<int>("quiet", 1, false, false);
    EXPECT_TRUE(top.values.empty()) << "a put asked to stay quiet";

    top.values.clear();
    top.Remove("middle");
    bottom->Put<int>("after", 1);
    EXPECT_EQ(top.values, std::vector<std::string>{"middle"}) << "only the removal itself";
}

TEST(Container, AssignSharesCloneContentsCopies)
{
    DataContainer source;
    source.Put<int>("n", 1);
    source.GetSubData({"sub"}, true)->Put("t", "x");

    DataContainer shared;
    shared.Put<int>("stale", 0);
    shared.Assign(source);
    EXPECT_EQ(Keys(shared), (std::vector<std::string>{"n", "sub"}));
    EXPECT_EQ(shared.Get("n"), source.Get("n"));

    DataContainer copied;
    copied.CloneContents(source);
    EXPECT_NE(copied.Get("n"), source.Get("n"));
    EXPECT_NE(copied.Get("sub"), source.Get("sub")) << "sub-containers are copied deeply";
    source.GetSubData({"sub"}, false)->Put("t", "changed");
    std::string text;
    copied.GetSubData({"sub"}, false)->Get("t", text);
    EXPECT_EQ(text, "x");

    DataContainer appended;
    appended.Put<int>("first", 1);
    appended.Append(source);
    EXPECT_EQ(Keys(appended), (std::vector<std::string>{"first", "n", "sub"}));
}

TEST(Container, TwoThreadsPuttingAndGettingLoseNothing)
{
    DataContainer container;
    auto work = [&container](const std::string& prefix)
    {
        for (int i = 0; i < 2000; ++i)
        {
            container.Put<int>(prefix + std::to_string(i), i);
            int value = -1;
            container.Get(prefix + std::to_string(i / 2), value);
        }
    };
    std::thread a(work, "a"), b(work, "b");
    a.join();
    b.join();
    ASSERT_EQ(container.NumDataObjects(), 4000u);
    int value = -1;
    EXPECT_TRUE(container.Get("b1999", value));
    EXPECT_EQ(value, 1999);
}

TEST(Container, AcquireLocksCoversTheContainerAndItsLockableEntries)
{
    DataContainer container;
    container.Put<int>("plain", 1);
    container.Put<int>("lockable", 2, true);
    container.GetSubData({"sub"}, true);
    DataObject::LockList locks;
    container.AcquireLocks(locks);
    EXPECT_EQ(locks.size(), 3u) << "the container, the lockable value and the sub-container";
}

TEST(Container, ParentsReportedToOnlyWhileTheyLive)
{
    // A file whose destructor still edits one of its sections, as closing a file may.
    struct ClosingFile : RecordingContainer
    {
        int* reports = nullptr;
        boost::shared_ptr<DataContainer> section;
        ~ClosingFile() override { section->Put<int>("closed", 1); }
        void OnDataValueChanged(const std::string&, boost::shared_ptr<DataObject>) override
        {
            ++*reports;
        }
    };
    int reports = 0;
    auto file = boost::make_shared<ClosingFile>();
    file->reports = &reports;
    file->section = file->GetSubData({"[Data]"}, true);
    reports = 0;
    file->section->Put<int>("open", 1);
    EXPECT_EQ(reports, 1) << "a file owned by shared pointers hears of edits below it";

    reports = 0;
    file.reset();
    EXPECT_EQ(reports, 0) << "a file being destroyed is not called into";
}

TEST(Container, ASubContainerUnderTwoKeysReportsUntilItsLastKeyGoes)
{
    const std::pair<const char*, void (*)(DataContainer&)> dropKeyA[] = {
        {"removed", [](DataContainer& c) { c.Remove("a"); }},
        {"replaced", [](DataContainer& c) { c.Put("a", "text"); }},
    };
    for (const auto& [how, drop] : dropKeyA)
    {
        const auto sub = boost::make_shared<DataContainer>();
        OpenContainer top;
        top.PutDataObject("a", sub);
        top.PutDataObject("b", sub);
        drop(top);
        top.values.clear();
        sub->Put<int>("x", 1);
        EXPECT_EQ(top.values, std::vector<std::string>{"b"}) << "key a " << how;
    }
}

TEST(Container, StoringAContainerInsideItselfIsALogicError)
{
    KivTest::ScopedAlertCollector alerts;
    const auto top = boost::make_shared<OpenContainer>();
    const auto child = top->GetSubData({"child"}, true);
    const auto grandchild = child->GetSubData({"grandchild"}, true);
    OpenContainer holder;
    holder.PutDataObject("top", top);

    const std::pair<const char*, std::function<void()>> cycles[] = {
        {"itself", [&] { top->PutDataObject("self", top); }},
        {"its child", [&] { child->Append(holder); }},
        {"its grandchild", [&] { grandchild->Append(holder); }},
        {"assigned", [&] { child->Assign(holder); }},
    };
    for (const auto& [where, store] : cycles)
    {
        try
        {
            store();
            ADD_FAILURE() << where << ": stored";
        }
        catch (const Kiv::Core::LogicError& error)
        {
            EXPECT_EQ(error.GetMessage().rfind("a container cannot be stored inside itself", 0), 0u)
                << error.GetMessage();
            EXPECT_EQ(error.GetAlertId(), "Kiv.DataCore.DataContainer.Put");
        }
    }
    EXPECT_EQ(Keys(*top), std::vector<std::string>{"child"});
    EXPECT_EQ(Keys(*child), std::vector<std::string>{"grandchild"}) << "Assign changed nothing";
    EXPECT_TRUE(grandchild->GetEntries().empty());

    // What is not a cycle still goes in, and the tree can still be walked.
    grandchild->Put<int>("x", 1);
    top->PutDataObject("again", grandchild);
    EXPECT_TRUE(top->Clone());
}

TEST(Container, PutReferenceOfANewKeyGoesThroughPutDataObjectUnlessToldWhetherToReport)
{
    OpenContainer container;
    const auto value = boost::make_shared<int>(1);
    container.PutReference("default", value, false);
    container.PutReference("reported", value, false, true);
    container.PutReference("quiet", value, false, false);
    EXPECT_EQ(container.putKeys, std::vector<std::string>{"default"});
    EXPECT_EQ(container.values, (std::vector<std::string>{"default", "reported"}));
    EXPECT_EQ(Keys(container), (std::vector<std::string>{"default", "reported", "quiet"}));
}

TEST(Container, AMovedValueIsMovedInAndACopiedOneStaysWithTheCaller)
{
    DataContainer container;
    FloatMatrixList curves(3, FloatMatrix(8, 1));
    const float* const storage = &curves[0].data()[0];
    container.Put("moved", std::move(curves));
    const auto stored = container.GetShared<FloatMatrixList>("moved");
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->size(), 3u);
    EXPECT_EQ(&(*stored)[0].data()[0], storage) << "the samples were not copied";

    std::string kept = "text";
    container.Put("copied", kept);
    EXPECT_EQ(kept, "text");
    std::string read;
    EXPECT_TRUE(container.Get("copied", read));
    EXPECT_EQ(read, "text");
}
