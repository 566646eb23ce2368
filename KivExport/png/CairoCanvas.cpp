#include "CairoCanvas.h"

#include "Kiv/Access/Failure.h"

namespace Kiv::Export
{

namespace
{
// cairo writes through a C callback; an exception may not cross it, so the failure waits here.
struct PngSink
{
    OutputFile* output;
    std::string failure;
};

cairo_status_t WriteToSink(void* closure, const unsigned char* data, unsigned int length)
{
    auto* sink = static_cast<PngSink*>(closure);
    try
    {
        sink->output->Write(data, length);
        return CAIRO_STATUS_SUCCESS;
    }
    catch (const std::exception& error)
    {
        sink->failure = error.what();
        return CAIRO_STATUS_WRITE_ERROR;
    }
}
} // namespace

CairoCanvas::CairoCanvas(int width, int height)
    : m_Surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)),
      m_Context(cairo_create(m_Surface))
{
    cairo_set_source_rgb(m_Context, 1.0, 1.0, 1.0);
    cairo_paint(m_Context);
}

CairoCanvas::~CairoCanvas()
{
    cairo_destroy(m_Context);
    cairo_surface_destroy(m_Surface);
}

void CairoCanvas::SelectFont(double size, bool bold)
{
    cairo_select_font_face(m_Context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(m_Context, size);
}

double CairoCanvas::TextWidth(const std::string& utf8, double size, bool bold)
{
    SelectFont(size, bold);
    cairo_text_extents_t extents;
    cairo_text_extents(m_Context, utf8.c_str(), &extents);
    return extents.x_advance;
}

void CairoCanvas::Text(const std::string& utf8, double x, double y, double size, Align align,
                       bool bold)
{
    const double width = TextWidth(utf8, size, bold);
    const double left = align == Align::Left     ? x
                        : align == Align::Centre ? x - width / 2
                                                 : x - width;
    cairo_move_to(m_Context, left, y);
    cairo_show_text(m_Context, utf8.c_str());
}

void CairoCanvas::SetColour(const Rgb& colour)
{
    cairo_set_source_rgb(m_Context, colour.red, colour.green, colour.blue);
}

void CairoCanvas::Line(const Rgb& colour, double x0, double y0, double x1, double y1)
{
    SetColour(colour);
    cairo_move_to(m_Context, x0, y0);
    cairo_line_to(m_Context, x1, y1);
    cairo_stroke(m_Context);
}

void CairoCanvas::WritePng(OutputFile& output)
{
    cairo_surface_flush(m_Surface);
    if (cairo_status(m_Context) != CAIRO_STATUS_SUCCESS)
    {
        Kiv::Access::Fail(output.FinalPath() + ": cannot draw the preview: " +
                          cairo_status_to_string(cairo_status(m_Context)));
    }
    PngSink sink{&output, {}};
    const cairo_status_t status = cairo_surface_write_to_png_stream(m_Surface, WriteToSink, &sink);
    if (!sink.failure.empty())
    {
        Kiv::Access::Fail(sink.failure);
    }
    if (status != CAIRO_STATUS_SUCCESS)
    {
        Kiv::Access::Fail(output.FinalPath() +
                          ": cannot write the preview: " + cairo_status_to_string(status));
    }
}

} // namespace Kiv::Export
