#include "PelrixChecks.h"

#include "Kiv/DataCore/ValueTypes.h"

namespace KivBench
{

using Kiv::DataCore::DataFile;

namespace
{
boost::shared_ptr<DataFile> OpenThroughHost(const std::string& path, DataFile::EAccess access)
{
    RegisterPelrixFileType();
    auto file = DataFile::Open(path, access, DataFile::OPEN_EXISTING, "", nullptr);
    if (!file || !file->IsOpen())
    {
        throw std::runtime_error("the host did not open " + path);
    }
    return file;
}
} // namespace

boost::shared_ptr<DataFile> OpenForReading(const std::string& path)
{
    return OpenThroughHost(path, DataFile::ACCESS_READ);
}

boost::shared_ptr<DataFile> OpenForReadWrite(const std::string& path)
{
    return OpenThroughHost(path, DataFile::ACCESS_READ_WRITE);
}

std::string CheckImage(DataFile& file, const ImageFileLayout& layout)
{
    const auto data = file.GetSubData({"[Data]"}, false);
    const auto matrix = data ? data->GetShared<Kiv::DataCore::FloatMatrix>("RawData") : nullptr;
    if (!matrix)
    {
        return file.GetFileName() + ": no [Data] / RawData matrix";
    }
    if (matrix->size1() != layout.height || matrix->size2() != layout.width)
    {
        return file.GetFileName() + ": the matrix is " + std::to_string(matrix->size1()) + " x " +
               std::to_string(matrix->size2());
    }
    const std::uint32_t lastX = layout.width - 1;
    const std::uint32_t lastY = layout.height - 1;
    if ((*matrix)(0, 0) != ImageSample(0, 0) || (*matrix)(0, 1) != ImageSample(1, 0) ||
        (*matrix)(1, 0) != ImageSample(0, 1) ||
        (*matrix)(lastY, lastX) != ImageSample(lastX, lastY))
    {
        return file.GetFileName() + ": the samples are not where the file holds them";
    }
    return "";
}

std::string CheckForceCurves(DataFile& file, std::uint32_t lineCount, std::uint32_t seriesCount)
{
    const auto data = file.GetSubData({"[Data]"}, false);
    const auto curves = data ? data->GetShared<Kiv::DataCore::FloatMatrixList>("RawData") : nullptr;
    if (!curves)
    {
        return file.GetFileName() + ": no [Data] / RawData curves";
    }
    if (curves->size() != lineCount)
    {
        return file.GetFileName() + ": " + std::to_string(curves->size()) + " curves read of " +
               std::to_string(lineCount);
    }
    const std::uint32_t columns = 4 * seriesCount;
    for (const std::uint32_t line : {0u, lineCount / 2, lineCount - 1})
    {
        const auto& curve = (*curves)[line];
        if (curve.size1() != columns || curve.size2() != 1)
        {
            return file.GetFileName() + ": curve " + std::to_string(line) + " has the wrong size";
        }
        for (std::uint32_t column = 0; column < columns; ++column)
        {
            if (curve(column, 0) != static_cast<float>(ForceValue(line, column)))
            {
                return file.GetFileName() + ": value " + std::to_string(column) + " of line " +
                       std::to_string(line) + " differs from the file";
            }
        }
    }
    return "";
}

} // namespace KivBench
