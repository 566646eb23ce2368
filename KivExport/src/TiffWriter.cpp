// 32-bit float TIFF through libtiff, calibrated the way ImageJ and Fiji read it: ImageJ's own
// ImageDescription (unit, display range) and XResolution/YResolution as pixels per that unit.
#include <cerrno>
#include <cmath>
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
    float low = std::numeric_limits<float>::infinity();
    float high = -low;
    for (std::size_t i = 0; i < count; ++i)
    {
        // NaN fails both comparisons and infinities cannot move a bound past themselves, so
        // only they need a second look.
        const float value = samples[i];
        low = value < low ? value : low;
        high = value > high ? value : high;
    }
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
        Set(TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(m_Tiff.get(), 0));
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

    void WriteRows()
    {
        const std::size_t columns = m_Source.geometry.columns;
        const float* samples = m_Source.ImageSamples();
        for (std::size_t row = 0; row < m_Source.geometry.rows; ++row)
        {
            // libtiff takes a non-const buffer but only reads it when nothing is compressed.
            auto* line = const_cast<float*>(samples + row * columns);
            if (TIFFWriteScanline(m_Tiff.get(), line, static_cast<uint32_t>(row), 0) < 0)
            {
                Fail("cannot write the TIFF samples");
            }
        }
    }

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
