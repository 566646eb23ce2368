// The save fuzz target run over its corpus, so that every ordinary (and sanitizer) test run
// repeats what the fuzzer checks. A finding aborts the test binary.
#define KIV_SAVE_FUZZ_NO_ENTRY
#include "../fuzz/SaveFuzzTarget.cpp"

#include <gtest/gtest.h>

namespace
{

namespace fs = std::filesystem;

TEST(SaveFuzzReplay, EveryCorpusFileIsSavedOrRefusedCleanly)
{
    SaveFuzz::Prepare();
    std::size_t files = 0;
    for (const auto& entry :
         fs::directory_iterator(fs::path(KIV_TEST_SOURCE_DIR) / "fuzz" / "save-corpus"))
    {
        if (entry.path().extension() != ".flt")
        {
            continue;
        }
        SCOPED_TRACE(entry.path().filename().string());
        const std::string bytes = SaveFuzz::ReadAll(entry.path());
        SaveFuzz::SaveBytes(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++files;
    }
    EXPECT_GE(files, 20u);
}

} // namespace
