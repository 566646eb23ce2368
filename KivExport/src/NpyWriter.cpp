// NumPy format 1.0: magic, version, a little-endian header length, a Python dict literal padded
// with spaces and ended by a newline so that the data start at a multiple of 64, then the data.
#include <cstdint>

#include "Kiv/Access/Failure.h"
#include "Writers.h"

namespace Kiv::Export
{

namespace
{
const std::size_t DATA_ALIGNMENT = 64;
const std::size_t PREAMBLE_SIZE = 10; // magic (6), version (2), header length (2)

std::string NpyHeader(std::size_t rows, std::size_t columns, const std::string& name)
{
    std::string dict = "{'descr': '<f4', 'fortran_order': False, 'shape': (" +
                       std::to_string(rows) + ", " + std::to_string(columns) + "), }";
    const std::size_t unpadded = PREAMBLE_SIZE + dict.size() + 1;
    dict.append((DATA_ALIGNMENT - unpadded % DATA_ALIGNMENT) % DATA_ALIGNMENT, ' ');
    dict += '\n';
    if (dict.size() > 0xFFFF)
    {
        Kiv::Access::Fail(name + ": the array is too large for the npy header");
    }
    const auto length = static_cast<std::uint16_t>(dict.size());
    std::string header = "\x93NUMPY";
    header += '\x01';
    header += '\x00';
    header += static_cast<char>(length & 0xFF);
    header += static_cast<char>(length >> 8);
    return header + dict;
}
} // namespace

void WriteNpy(const ExportSource& source, OutputFile& output)
{
    const bool image = static_cast<bool>(source.image);
    const std::size_t rows = image ? source.geometry.rows : source.curves->points;
    const std::size_t columns = image ? source.geometry.columns : source.curves->columns;
    const float* values = image ? source.ImageSamples() : source.curves->values.data();
    const std::string header = NpyHeader(rows, columns, output.FinalPath());
    output.Write(header.data(), header.size());
    output.Write(values, rows * columns * sizeof(float));
}

} // namespace Kiv::Export
