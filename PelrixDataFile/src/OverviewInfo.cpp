#include "Pelrix/PelrixDataFile.h"

#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

void PelrixDataFile::StorePelrixFileOverviewInfo()
{
    const auto overview = GetSubData({Names::OVERVIEW}, true);
    if (!overview)
    {
        DataFileError("StorePelrixFileOverviewInfo failed to create sub container")
            .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }
    const bool force = m_FileSubType == Names::FORCE;
    if (force)
    {
        overview->Put("FileSubType", Names::FORCE, false, boost::indeterminate);
        overview->Put<std::string>("ForceCurveDataLabels", m_ForceCurveLabels);
    }
    else if (m_FileSubType == Names::IMAGE)
    {
        overview->Put("FileSubType", Names::IMAGE, false, boost::indeterminate);
    }
    else
    {
        overview->Put<std::string>("FileListPlistName", Names::UNKNOWN);
        overview->Put("FileSubType", Names::UNKNOWN, false, boost::indeterminate);
    }
    overview->Put<HostLong>("NumberOfDataPlists", m_DataPlistCount);
    overview->Put<HostLong>("DataOffset", static_cast<std::int32_t>(m_DataStartPos));

    // Only ever appended to: opening the same object again lists the names again, and the
    // record shows that.
    const auto& names = Names::WrittenSections(force);
    m_PlistNames.insert(m_PlistNames.end(), names.begin(), names.end());
    overview->Put<StringList>("DataPlistNames", m_PlistNames);
}

template <class T>
T PelrixDataFile::GetFileOverviewInfo(std::string key)
{
    const auto overview = GetSubData({Names::OVERVIEW}, false);
    if (!overview)
    {
        DataFileError("GetFileOverviewInfo cannot find PelrixFileOverviewInfo")
            .RaiseError(PELRIX_CODE_CONTEXT, Names::ALERT_ID, false);
    }
    T value{};
    overview->Get(key, value);
    return value;
}

template std::string PelrixDataFile::GetFileOverviewInfo<std::string>(std::string);
template StringList PelrixDataFile::GetFileOverviewInfo<StringList>(std::string);
template HostLong PelrixDataFile::GetFileOverviewInfo<HostLong>(std::string);

std::vector<std::string> PelrixDataFile::GetPlistNames()
{
    return GetFileOverviewInfo<StringList>("DataPlistNames");
}

} // namespace Pelrix
