// 32-bit float TIFF through libtiff, calibrated the way ImageJ and Fiji read it: ImageJ's own
// ImageDescription (unit, display range) and XResolution/YResolution as pixels per that unit.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <unistd.h>

#include <tiffio.h>

#include "Kiv/Access/Failure.h"
#include "Kiv/Access/ValueView.h"
#include "Writers.h"

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

// The display range: the extremes of the finite samples. Only these two figures, in one pass
// without branches on the common path, since a large image is read again just for them.
std::optional<std::pair<float, float>> FiniteRange(const float* samples, std::size_t count)
{
    // Eight independent bounds a side, which the compiler turns into vector minimum and maximum
    // instructions: "value < low ? value : low" is exactly what they compute, NaN included.
    constexpr std::size_t LANES = 8;
    float lows[LANES];
    float highs[LANES];
    std::fill(std::begin(lows), std::end(lows), std::numeric_limits<float>::infinity());
    std::fill(std::begin(highs), std::end(highs), -std::numeric_limits<float>::infinity());
    std::size_t i = 0;
    for (; i + LANES <= count; i += LANES)
    {
        for (std::size_t lane = 0; lane < LANES; ++lane)
        {
            // NaN fails both comparisons and infinities cannot move a bound past themselves,
            // so only they need a second look.
            const float value = samples[i + lane];
            lows[lane] = value < lows[lane] ? value : lows[lane];
            highs[lane] = value > highs[lane] ? value : highs[lane];
        }
    }
    for (std::size_t lane = 0; i < count; ++i, ++lane)
    {
        lows[lane] = samples[i] < lows[lane] ? samples[i] : lows[lane];
        highs[lane] = samples[i] > highs[lane] ? samples[i] : highs[lane];
    }
    float low = *std::min_element(std::begin(lows), std::end(lows));
    float high = *std::max_element(std::begin(highs), std::end(highs));
    if (std::isfinite(low) && std::isfinite(high))
    {
        return std::make_pair(low, high);
    }
    // Infinities among the samples: the slow pass that leaves them out.
    low = std::numeric_limits<float>::infinity();
    high = -low;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (std::isfinite(samples[i]))
        {
            low = std::min(low, samples[i]);
            high = std::max(high, samples[i]);
        }
    }
    if (low > high)
    {
        return std::nullopt;
    }
    return std::make_pair(low, high);
}

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
        WriteRows();
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

    std::string ImageJDescription(const char* unit) const
    {
        std::string text = "ImageJ=1.11a\n";
        if (unit)
        {
            text += "unit=" + std::string(unit) + "\n";
        }
        if (const auto range = FiniteRange(m_Source.ImageSamples(), m_Source.ImageSampleCount()))
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
        const LengthUnit* unit = nullptr;
        if (pixelWidth && *pixelWidth > 0.0 && pixelHeight > 0.0)
        {
            unit = &ReadableUnit(*pixelWidth);
            SetFloat(TIFFTAG_XRESOLUTION, unit->metres / *pixelWidth);
            SetFloat(TIFFTAG_YRESOLUTION, unit->metres / pixelHeight);
        }
        else
        {
            SetFloat(TIFFTAG_XRESOLUTION, 1.0);
            SetFloat(TIFFTAG_YRESOLUTION, 1.0);
        }
        const std::string description = ImageJDescription(unit ? unit->name : nullptr);
        if (!TIFFSetField(m_Tiff.get(), TIFFTAG_IMAGEDESCRIPTION, description.c_str()) ||
            !TIFFSetField(m_Tiff.get(), TIFFTAG_SOFTWARE, "kiv"))
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

    void WriteRows()
    {
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
            if (TIFFWriteRawStrip(m_Tiff.get(), strip, bytes,
                                  static_cast<tmsize_t>(rows * rowBytes)) < 0)
            {
                Fail("cannot write the TIFF samples");
            }
        }
    }

    static constexpr std::size_t STRIP_BYTES = std::size_t{1} << 20;

    const ExportSource& m_Source;
    OutputFile& m_Output;
    std::unique_ptr<TIFF, TiffCloser> m_Tiff;
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
