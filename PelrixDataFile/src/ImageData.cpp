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

// The samples the header describes, read into a matrix of their own; nothing when a resolution
// is below 1. createSection: make "[Data Parameters]" when it is missing, as reading an image
// does; a look ahead leaves the tree as it is.
PelrixDataFile::ImageSamples PelrixDataFile::ReadImageSamples(bool createSection)
{
    Exists(Names::DATA_PARAMETERS_SECTION);
    const auto parameters = GetSubData({Names::DATA_PARAMETERS_SECTION}, createSection);
    ImageSamples image;
    if (!parameters)
    {
        return image;
    }
    if (createSection)
    {
        m_CurrentSection = parameters;
    }
    const std::int32_t resolutionX = ReadHeaderInt32(*parameters, "ResolutionX");
    const std::int32_t resolutionY = ReadHeaderInt32(*parameters, "ResolutionY");
    image.dataOffset = ReadHeaderInt32(*parameters, "DataOffset");
    if (resolutionX < 1 || resolutionY < 1)
    {
        return image;
    }
    if (image.dataOffset < 0)
    {
        DataFileError(GetFileName() + ": \"DataOffset\" is negative (" +
                      std::to_string(image.dataOffset) + ")")
            .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }

    // Both factors are below 2^31, so neither product can overflow 64 bits.
    const std::uint64_t sampleCount =
        static_cast<std::uint64_t>(resolutionX) * static_cast<std::uint64_t>(resolutionY);
    image.byteCount = sampleCount * sizeof(float);
    const std::string what = "an image of " + std::to_string(resolutionX) + " x " +
                             std::to_string(resolutionY) + " samples for " + GetFileName();
    Kiv::Core::CheckAllocation(image.byteCount, what);

    try
    {
        image.matrix = boost::make_shared<FloatMatrix>(static_cast<std::size_t>(resolutionY),
                                                       static_cast<std::size_t>(resolutionX));
    }
    catch (const std::bad_alloc&)
    {
        Kiv::Core::AllocationFailed(what).RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }

    // The matrix's storage is allocated but not yet written, so it can still be backed with
    // huge pages, and mapped in one call rather than one page fault at a time during the read.
    Kiv::Core::PrepareForBulkRead(&image.matrix->data()[0],
                                  static_cast<std::size_t>(image.byteCount));

    // Setting the file's position drops the buffered reader's read-ahead, so the bulk read
    // goes straight from "DataOffset" into the matrix's own storage.
    m_FileStream.SetInputPos(image.dataOffset, Kiv::Core::FROM_BEGIN);
    char* const samples = reinterpret_cast<char*>(&image.matrix->data()[0]);
    image.delivered = m_InputStream->Read(samples, image.byteCount);
    // A short file leaves the samples it lacks at zero.
    std::memset(samples + image.delivered, 0,
                static_cast<std::size_t>(image.byteCount - image.delivered));
    return image;
}

// samples: the image when it was read before the file kind was known, or nothing.
void PelrixDataFile::LoadImageData(ImageSamples samples)
{
    m_DataPlistCount = 1;
    if (!samples.matrix)
    {
        samples = ReadImageSamples(true);
        if (!samples.matrix)
        {
            return;
        }
    }
    NoteNonZeroPadding(samples.dataOffset);
    if (samples.delivered < samples.byteCount)
    {
        const std::uint64_t missing = samples.byteCount - samples.delivered;
        PublishShortData("image", static_cast<double>(missing),
                         static_cast<double>((missing + sizeof(float) - 1) / sizeof(float)), 0);
    }

    m_CurrentSection = GetSubData({Names::DATA_SECTION}, true);
    m_CurrentSection->PutReference(Names::RAW_DATA, samples.matrix, false);
    NoteBytesAfter(static_cast<std::int64_t>(samples.dataOffset + samples.byteCount),
                   "after the image data");
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
