#include "Pelrix/PelrixDataFile.h"

#include <cstring>
#include <limits>

#include "Kiv/Core/AllocationLimit.h"
#include "Kiv/Core/HugePages.h"
#include "PelrixIdentity.h"
#include "SectionValues.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

void PelrixDataFile::LoadImageData()
{
    Exists(Names::DATA_PARAMETERS_SECTION);
    m_CurrentSection = GetSubData({Names::DATA_PARAMETERS_SECTION}, true);
    const std::int32_t resolutionX = ReadHeaderInt32(*m_CurrentSection, "ResolutionX");
    const std::int32_t resolutionY = ReadHeaderInt32(*m_CurrentSection, "ResolutionY");
    const std::int32_t dataOffset = ReadHeaderInt32(*m_CurrentSection, "DataOffset");
    m_DataPlistCount = 1;
    if (resolutionX < 1 || resolutionY < 1)
    {
        return;
    }
    if (dataOffset < 0)
    {
        DataFileError(GetFileName() + ": \"DataOffset\" is negative (" +
                      std::to_string(dataOffset) + ")")
            .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }

    // Both factors are below 2^31, so neither product can overflow 64 bits.
    const std::uint64_t sampleCount =
        static_cast<std::uint64_t>(resolutionX) * static_cast<std::uint64_t>(resolutionY);
    const std::uint64_t byteCount = sampleCount * sizeof(float);
    const std::string what = "an image of " + std::to_string(resolutionX) + " x " +
                             std::to_string(resolutionY) + " samples for " + GetFileName();
    Kiv::Core::CheckAllocation(byteCount, what);

    boost::shared_ptr<FloatMatrix> matrix;
    try
    {
        matrix = boost::make_shared<FloatMatrix>(static_cast<std::size_t>(resolutionY),
                                                 static_cast<std::size_t>(resolutionX));
    }
    catch (const std::bad_alloc&)
    {
        Kiv::Core::AllocationFailed(what).RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }

    // The matrix's storage is allocated but not yet written, so it can still be backed with
    // huge pages, and mapped in one call rather than one page fault at a time during the read.
    Kiv::Core::PrepareForBulkRead(&matrix->data()[0], static_cast<std::size_t>(byteCount));

    NoteNonZeroPadding(dataOffset);

    // Setting the file's position drops the buffered reader's read-ahead, so the bulk read
    // goes straight from "DataOffset" into the matrix's own storage.
    m_FileStream.SetInputPos(dataOffset, Kiv::Core::FROM_BEGIN);
    char* const samples = reinterpret_cast<char*>(&matrix->data()[0]);
    const std::uint64_t delivered = m_InputStream->Read(samples, byteCount);
    // A short file leaves the samples it lacks at zero.
    std::memset(samples + delivered, 0, static_cast<std::size_t>(byteCount - delivered));
    if (delivered < byteCount)
    {
        const std::uint64_t missing = byteCount - delivered;
        PublishShortData("image", static_cast<double>(missing),
                         static_cast<double>((missing + sizeof(float) - 1) / sizeof(float)), 0);
    }

    m_CurrentSection = GetSubData({Names::DATA_SECTION}, true);
    m_CurrentSection->PutReference(Names::RAW_DATA, matrix, false);
    NoteBytesAfter(static_cast<std::int64_t>(dataOffset + byteCount), "after the image data");
}

// The writer pads the header with zeros up to "DataOffset"; anything else there is lost.
void PelrixDataFile::NoteNonZeroPadding(std::int64_t dataOffset)
{
    if (m_DataStartPos >= dataOffset)
    {
        return;
    }
    if (HoldsUnexpectedBytes(m_DataStartPos, dataOffset, false))
    {
        NoteUnkeptContent("the bytes between the header and \"DataOffset\" are not all zero "
                          "and are not kept");
    }
}

void PelrixDataFile::WriteImageData()
{
    const auto dataSection = GetSubData({Names::DATA_SECTION}, false);
    if (!dataSection)
    {
        DataFileError("WriteDataToDisk cannot find data section name")
            .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }
    // Shared rather than copied: the samples go out in one block from the matrix's storage.
    const auto stored = GetLockedValue<FloatMatrix>(*dataSection, Names::RAW_DATA);
    const auto& matrix = stored.value;
    if (!matrix || matrix->size1() == 0 || matrix->size2() == 0)
    {
        return;
    }
    const std::uint64_t byteCount =
        static_cast<std::uint64_t>(matrix->size1()) * matrix->size2() * sizeof(float);
    WriteCountedBlock(&matrix->data()[0], byteCount);
}

} // namespace Pelrix
