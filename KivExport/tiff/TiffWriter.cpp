// 32-bit float TIFF through libtiff, calibrated the way ImageJ and Fiji read it: ImageJ's own
// ImageDescription (unit, display range) and XResolution/YResolution as pixels per that unit.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <unistd.h>

#include <tiffio.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/ValueView.h"
#include "PictureWriters.h"

namespace Kiv::Export
{

namespace
{
struct LengthUnit
{
    const char* name; // as ImageJ spells it in plain ASCII
    double metres;
};

// Largest first: the first unit in which a pixel is at least 1 gives a readable pixel size.
const LengthUnit LENGTH_UNITS[] = {{"m", 1.0}, {"mm", 1e-3}, {"um", 1e-6}, {"nm", 1e-9}};

const LengthUnit& ReadableUnit(double pixelMetres)
{
    for (const LengthUnit& unit : LENGTH_UNITS)
    {
        if (pixelMetres >= unit.metres)
        {
            return unit;
        }
    }
    return LENGTH_UNITS[std::size(LENGTH_UNITS) - 1];
}

// The display range: the extremes of the finite samples, taken a strip at a time just before
// the strip is written, while its samples are in the cache anyway.
class FiniteRange
{
public:
    void Add(const float* samples, std::size_t count)
    {
        const auto [low, high] = FastBounds(samples, count);
        if (std::isfinite(low) && std::isfinite(high))
        {
            Merge(low, high);
            return;
        }
        // Infinities among the samples (or nothing finite at all): the slow pass that leaves
        // them out.
        for (std::size_t i = 0; i < count; ++i)
        {
            if (std::isfinite(samples[i]))
            {
                Merge(samples[i], samples[i]);
            }
        }
    }

    std::optional<std::pair<float, float>> Result() const
    {
        if (m_Low > m_High)
        {
            return std::nullopt;
        }
        return std::make_pair(m_Low, m_High);
    }

private:
    void Merge(float low, float high)
    {
        m_Low = std::min(m_Low, low);
        m_High = std::max(m_High, high);
    }

    // The extremes with NaN left out, in one pass without branches. Two vectors of bounds a
    // side (GCC's vector extension, in the 16-byte registers every x86-64 has: minps and maxps
    // whatever the optimiser's cost model would decide for a plain loop). "value < low ? value :
    // low" is exactly what those instructions compute: NaN fails both comparisons.
    static std::pair<float, float> FastBounds(const float* samples, std::size_t count)
    {
        constexpr std::size_t WIDTH = 4;
        constexpr std::size_t LANES = 2 * WIDTH;
        using Vector = float __attribute__((vector_size(WIDTH * sizeof(float))));
        const float infinity = std::numeric_limits<float>::infinity();
        Vector lowLanes[2] = {Vector{} + infinity, Vector{} + infinity};
        Vector highLanes[2] = {Vector{} - infinity, Vector{} - infinity};
        std::size_t i = 0;
        for (; i + LANES <= count; i += LANES)
        {
            for (std::size_t half = 0; half < 2; ++half)
            {
                Vector value;
                std::memcpy(&value, samples + i + half * WIDTH, sizeof value);
                lowLanes[half] = value < lowLanes[half] ? value : lowLanes[half];
                highLanes[half] = value > highLanes[half] ? value : highLanes[half];
            }
        }
        float lows[LANES];
        float highs[LANES];
        std::memcpy(lows, lowLanes, sizeof lows);
        std::memcpy(highs, highLanes, sizeof highs);
        for (std::size_t lane = 0; i < count; ++i, ++lane)
        {
            lows[lane] = samples[i] < lows[lane] ? samples[i] : lows[lane];
            highs[lane] = samples[i] > highs[lane] ? samples[i] : highs[lane];
        }
        return {*std::min_element(std::begin(lows), std::end(lows)),
                *std::max_element(std::begin(highs), std::end(highs))};
    }

    float m_Low = std::numeric_limits<float>::infinity();
    float m_High = -std::numeric_limits<float>::infinity();
};

// libtiff reports through process-wide handlers, which would print to stderr from any thread;
// every call's result is checked instead.
void SilenceLibtiff()
{
    static std::once_flag once;
    std::call_once(once,
                   []
                   {
                       TIFFSetErrorHandler(nullptr);
                       TIFFSetWarningHandler(nullptr);
                   });
}

struct TiffCloser
{
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

class TiffImageWriter
{
public:
    TiffImageWriter(const ExportSource& source, OutputFile& output)
        : m_Source(source), m_Output(output)
    {
    }

    void Write()
    {
        SilenceLibtiff();
        // TIFFClose closes the descriptor it was given; the output file keeps its own.
        const int descriptor = ::dup(m_Output.Descriptor());
        if (descriptor < 0)
        {
            m_Output.FailWrite(errno);
        }
        m_Tiff.reset(TIFFFdOpen(descriptor, m_Output.FinalPath().c_str(), "w"));
        if (!m_Tiff)
        {
            ::close(descriptor);
            Fail("cannot start the TIFF file");
        }
        WriteTags();
        const FiniteRange range = WriteRows();
        // The directory goes out at the flush, so the description can wait for the range.
        const std::string description = ImageJDescription(range);
        if (!TIFFSetField(m_Tiff.get(), TIFFTAG_IMAGEDESCRIPTION, description.c_str()))
        {
            Fail("cannot set a TIFF tag");
        }
        if (!TIFFFlush(m_Tiff.get()))
        {
            Fail("cannot write the TIFF file");
        }
        m_Tiff.reset();
    }

private:
    [[noreturn]] void Fail(const std::string& what) const
    {
        Kiv::Access::Fail(m_Output.FinalPath() + ": " + what);
    }

    void Set(ttag_t tag, unsigned value)
    {
        if (!TIFFSetField(m_Tiff.get(), tag, value))
        {
            Fail("cannot set a TIFF tag");
        }
    }

    void SetFloat(ttag_t tag, double value)
    {
        if (!TIFFSetField(m_Tiff.get(), tag, static_cast<float>(value)))
        {
            Fail("cannot set a TIFF tag");
        }
    }

    std::string ImageJDescription(const FiniteRange& samples) const
    {
        std::string text = "ImageJ=1.11a\n";
        if (m_Unit)
        {
            text += "unit=" + std::string(m_Unit->name) + "\n";
        }
        if (const auto range = samples.Result())
        {
            text += "min=" + Kiv::Access::FormatNumber(range->first) + "\n";
            text += "max=" + Kiv::Access::FormatNumber(range->second) + "\n";
        }
        return text;
    }

    void WriteTags()
    {
        const auto& geometry = m_Source.geometry;
        Set(TIFFTAG_IMAGEWIDTH, static_cast<unsigned>(geometry.columns));
        Set(TIFFTAG_IMAGELENGTH, static_cast<unsigned>(geometry.rows));
        Set(TIFFTAG_SAMPLESPERPIXEL, 1);
        Set(TIFFTAG_BITSPERSAMPLE, 32);
        Set(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
        Set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        Set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        Set(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
        Set(TIFFTAG_ROWSPERSTRIP, static_cast<unsigned>(RowsPerStrip()));
        Set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_NONE);

        const auto pixelWidth = geometry.PixelWidthMetres();
        const auto pixelHeight = geometry.PixelHeightMetres().value_or(pixelWidth.value_or(0.0));
        if (pixelWidth && *pixelWidth > 0.0 && pixelHeight > 0.0)
        {
            m_Unit = &ReadableUnit(*pixelWidth);
            SetFloat(TIFFTAG_XRESOLUTION, m_Unit->metres / *pixelWidth);
            SetFloat(TIFFTAG_YRESOLUTION, m_Unit->metres / pixelHeight);
        }
        else
        {
            SetFloat(TIFFTAG_XRESOLUTION, 1.0);
            SetFloat(TIFFTAG_YRESOLUTION, 1.0);
        }
        if (!TIFFSetField(m_Tiff.get(), TIFFTAG_SOFTWARE, "kiv"))
        {
            Fail("cannot set a TIFF tag");
        }
    }

    // Strips of about a megabyte: few enough writes to run at the speed of the disk, small
    // enough for any reader to take one at a time.
    std::size_t RowsPerStrip() const
    {
        const std::size_t rowBytes = std::max<std::size_t>(1, m_Source.geometry.columns) * 4;
        return std::clamp<std::size_t>(STRIP_BYTES / rowBytes, 1,
                                       std::max<std::size_t>(1, m_Source.geometry.rows));
    }

    FiniteRange WriteRows()
    {
        FiniteRange range;
        const std::size_t rowBytes = m_Source.geometry.columns * sizeof(float);
        const std::size_t rowsPerStrip = RowsPerStrip();
        const auto* samples = reinterpret_cast<const char*>(m_Source.ImageSamples());
        uint32_t strip = 0;
        for (std::size_t row = 0; row < m_Source.geometry.rows; row += rowsPerStrip, ++strip)
        {
            const std::size_t rows = std::min(rowsPerStrip, m_Source.geometry.rows - row);
            // Nothing is compressed, so the samples as they lie in memory (this machine's byte
            // order, which the file's header states) are the strip; libtiff only reads them.
            auto* bytes = const_cast<char*>(samples + row * rowBytes);
            range.Add(reinterpret_cast<const float*>(bytes), rows * m_Source.geometry.columns);
            if (TIFFWriteRawStrip(m_Tiff.get(), strip, bytes,
                                  static_cast<tmsize_t>(rows * rowBytes)) < 0)
            {
                Fail("cannot write the TIFF samples");
            }
        }
        return range;
    }

    static constexpr std::size_t STRIP_BYTES = std::size_t{1} << 20;

    const ExportSource& m_Source;
    OutputFile& m_Output;
    std::unique_ptr<TIFF, TiffCloser> m_Tiff;
    // The unit of the calibration, when the file gives a pixel size.
    const LengthUnit* m_Unit = nullptr;
};
} // namespace

void WriteTiff(const ExportSource& source, OutputFile& output)
{
    if (source.geometry.columns > 0xFFFFFFFFu || source.geometry.rows > 0xFFFFFFFFu)
    {
        Kiv::Access::Fail(output.FinalPath() + ": the image is too large for TIFF");
    }
    TiffImageWriter(source, output).Write();
}

} // namespace Kiv::Export

// The module's one entry point, which the export library looks up after loading it.
extern "C" void KivExportWriteTiff(const Kiv::Export::ExportSource& source,
                                   Kiv::Export::OutputFile& output)
{
    Kiv::Export::WriteTiff(source, output);
}
