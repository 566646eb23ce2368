// kiv gallery's work: find the scans, make the outputs of those that changed, forget and remove
// those that are gone, and write the index from what every scan's card says.
#include "Kiv/Export/Gallery.h"

#include <filesystem>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "GalleryParts.h"
#include "Kiv/Access/Failure.h"
#include "Kiv/Access/FileAccess.h"
#include "Kiv/Export/Export.h"
#include "PictureWriters.h"

namespace Kiv::Export
{

namespace fs = std::filesystem;

namespace
{
const char* const INDEX_NAME = "index.html";

std::string InFolder(const std::string& folder, const std::string& relative)
{
    return folder + "/" + relative;
}

bool Exists(const std::string& path)
{
    struct stat status
    {
    };
    return ::stat(path.c_str(), &status) == 0;
}

void MakeFolder(const std::string& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
    {
        Kiv::Access::FailWithSystemError(folder + ": cannot make the folder", error.value());
    }
    if (!fs::is_directory(folder, error))
    {
        Kiv::Access::Fail(folder + ": not a folder");
    }
}

// Removes a file the gallery made and then each folder above it that this left empty.
void RemoveOutput(const std::string& outputFolder, const std::string& relative)
{
    ::unlink(InFolder(outputFolder, relative).c_str());
    for (fs::path parent = fs::path(relative).parent_path(); !parent.empty();
         parent = parent.parent_path())
    {
        if (::rmdir(InFolder(outputFolder, parent.string()).c_str()) != 0)
        {
            break;
        }
    }
}

class GalleryRun
{
public:
    GalleryRun(const GalleryRequest& request, const GalleryObserver& observer)
        : m_Request(request), m_Observer(observer), m_Out(request.outputFolder)
    {
        while (m_Out.size() > 1 && m_Out.back() == '/')
        {
            m_Out.pop_back();
        }
    }

    GallerySummary Run()
    {
        MakeFolder(m_Out);
        Kiv::Access::LoadFileTypeModules();
        const PictureWritersPreload preload(Format::Png);
        m_Scans = FindScans(m_Request.folders, m_Out);
        m_Previous = ReadManifest(m_Out);
        m_Summary.scans = m_Scans.size();
        m_Cards.resize(m_Scans.size());
        m_Failures.resize(m_Scans.size());
        KeepUnchanged();
        BuildChanged();
        Manifest current = CurrentManifest();
        RemoveGone(current);
        WriteManifest(m_Out, current);
        m_Summary.index = InFolder(m_Out, INDEX_NAME);
        WriteIndexPage(m_Summary.index, CardList(current), FailureList());
        return m_Summary;
    }

private:
    static std::string PageOf(const ScanFile& scan) { return scan.relative + ".html"; }
    static std::string PreviewOf(const ScanFile& scan) { return scan.relative + ".png"; }

    // A scan whose size and time are those its outputs were made from, with both outputs in
    // place, keeps them and its card; only a stat of each is spent on it.
    void KeepUnchanged()
    {
        for (std::size_t i = 0; i < m_Scans.size(); ++i)
        {
            const ScanFile& scan = m_Scans[i];
            const auto previous = m_Previous.find(scan.relative);
            if (!m_Request.force && previous != m_Previous.end() &&
                previous->second.bytes == scan.bytes &&
                previous->second.modifiedNs == scan.modifiedNs &&
                previous->second.page == PageOf(scan) &&
                previous->second.preview == PreviewOf(scan) &&
                Exists(InFolder(m_Out, PageOf(scan))) && Exists(InFolder(m_Out, PreviewOf(scan))))
            {
                m_Cards[i] = previous->second.card;
                ++m_Summary.unchanged;
            }
            else
            {
                m_Changed.push_back(i);
            }
        }
    }

    // The preview, the viewer page and the card of a scan, from one opening of the file.
    void BuildOne(std::size_t index)
    {
        const ScanFile& scan = m_Scans[index];
        const auto file = Kiv::Access::OpenForReading(scan.source);
        // The card first: a file that fails fails before any folder or output is made for it.
        m_Cards[index] = DescribeScan(*file, scan.source);
        const std::string preview = InFolder(m_Out, PreviewOf(scan));
        MakeFolder(fs::path(preview).parent_path().string());
        ExportFile(*file, scan.source, preview, Format::Png, ExportOptions(), true);
        ExportFile(*file, scan.source, InFolder(m_Out, PageOf(scan)), Format::Html, ExportOptions(),
                   true);
        file->Close();
    }

    void BuildChanged()
    {
        FileBatch batch;
        for (const std::size_t index : m_Changed)
        {
            batch.inputs.push_back(m_Scans[index].source);
        }
        batch.jobs = m_Request.jobs;
        batch.work = [this](std::size_t i) { BuildOne(m_Changed[i]); };
        batch.finished =
            [this](std::size_t i, const std::string& failure, const BatchProgress& progress)
        {
            const std::size_t index = m_Changed[i];
            if (failure.empty())
            {
                ++m_Summary.built;
            }
            else
            {
                ++m_Summary.failed;
                m_Cards[index].reset();
                // Outputs of an earlier run would show data the file no longer holds. Their
                // folders stay until the end of the run: another scan may be writing there.
                ::unlink(InFolder(m_Out, PageOf(m_Scans[index])).c_str());
                ::unlink(InFolder(m_Out, PreviewOf(m_Scans[index])).c_str());
                m_Failures[index] = failure;
                if (m_Observer.failure)
                {
                    m_Observer.failure(failure);
                }
            }
            if (m_Observer.progress)
            {
                m_Observer.progress(progress);
            }
        };
        RunFileBatch(batch);
    }

    Manifest CurrentManifest() const
    {
        Manifest manifest;
        for (std::size_t i = 0; i < m_Scans.size(); ++i)
        {
            if (!m_Cards[i])
            {
                continue;
            }
            const ScanFile& scan = m_Scans[i];
            manifest[scan.relative] = {scan.bytes, scan.modifiedNs, PageOf(scan), PreviewOf(scan),
                                       *m_Cards[i]};
        }
        return manifest;
    }

    // The outputs of scans that are gone, or that failed this time: their pages would show
    // data the folders no longer hold.
    void RemoveGone(const Manifest& current)
    {
        std::set<std::string> kept;
        for (const auto& [relative, entry] : current)
        {
            kept.insert(entry.page);
            kept.insert(entry.preview);
        }
        for (const auto& [relative, entry] : m_Previous)
        {
            if (current.count(relative))
            {
                continue;
            }
            for (const std::string* output : {&entry.page, &entry.preview})
            {
                if (!kept.count(*output))
                {
                    RemoveOutput(m_Out, *output);
                }
            }
            ++m_Summary.removed;
        }
    }

    static GalleryJson CardList(const Manifest& current)
    {
        GalleryJson cards = GalleryJson::array();
        for (const auto& [relative, entry] : current)
        {
            GalleryJson card = {
                {"path", relative}, {"page", entry.page}, {"preview", entry.preview}};
            card.update(entry.card);
            cards.push_back(std::move(card));
        }
        return cards;
    }

    GalleryJson FailureList() const
    {
        GalleryJson failures = GalleryJson::array();
        for (std::size_t i = 0; i < m_Scans.size(); ++i)
        {
            if (!m_Failures[i].empty())
            {
                failures.push_back(
                    {{"path", m_Scans[i].relative},
                     {"reason", Kiv::Access::WithoutFilePrefix(m_Failures[i], m_Scans[i].source)}});
            }
        }
        return failures;
    }

    const GalleryRequest& m_Request;
    const GalleryObserver& m_Observer;
    std::string m_Out;
    std::vector<ScanFile> m_Scans;
    Manifest m_Previous;
    std::vector<std::size_t> m_Changed;
    std::vector<std::optional<GalleryJson>> m_Cards;
    std::vector<std::string> m_Failures;
    GallerySummary m_Summary;
};
} // namespace

GallerySummary RunGallery(const GalleryRequest& request, const GalleryObserver& observer)
{
    if (request.folders.empty())
    {
        Kiv::Access::Fail("a gallery needs at least one folder");
    }
    if (request.outputFolder.empty())
    {
        Kiv::Access::Fail("a gallery needs an output folder");
    }
    // Before the output folder is made: a mistyped folder leaves nothing behind.
    for (const auto& folder : request.folders)
    {
        std::error_code error;
        if (!fs::is_directory(folder, error))
        {
            Kiv::Access::Fail(folder + ": not a folder");
        }
    }
    return GalleryRun(request, observer).Run();
}

} // namespace Kiv::Export
