// index.html: the template with its style, its script and the cards put in; the page builds
// the cards from the data, and sorts and filters them.
#include "EmbeddedFiles.h"
#include "GalleryParts.h"
#include "OutputFile.h"
#include "PageText.h"

namespace Kiv::Export
{

void WriteIndexPage(const std::string& path, const GalleryJson& cards, const GalleryJson& failures)
{
    const GalleryJson data = {{"cards", cards}, {"failures", failures}};
    const std::string json =
        JsonForScript(data.dump(-1, ' ', false, GalleryJson::error_handler_t::replace));
    OutputFile output(path, true);
    BufferedOutput out(output);
    WriteTemplate(EmbeddedFile("gallery/index.html"), out,
                  [&](std::string_view name, BufferedOutput& to)
                  {
                      const std::string_view text =
                          name == "STYLE"    ? EmbeddedFile("gallery/gallery.css")
                          : name == "SCRIPT" ? EmbeddedFile("gallery/gallery.js")
                                             : std::string_view(json);
                      to.Write(text.data(), text.size());
                  });
    out.Flush();
    output.Commit();
}

} // namespace Kiv::Export
