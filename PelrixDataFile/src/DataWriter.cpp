#include "Pelrix/PelrixDataFile.h"

#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;
using Kiv::Core::Elapse;
using Kiv::Core::Lock;

void PelrixDataFile::Flush()
{
    // A closed object keeps its tree but has nowhere to write it.
    if (!IsFileWritable() || !IsContentModified() || !IsOpen())
    {
        return;
    }
    m_FileStream.SetOutputPos(0, Kiv::Core::FROM_BEGIN);
    WriteHeaderToDisk();
    WriteHeaderPaddingToDisk();
    WriteDataToDisk();
    m_ContentModified = false;
}

void PelrixDataFile::WriteFileToDisk()
{
    WriteHeaderToDisk();
    WriteHeaderPaddingToDisk();
    WriteDataToDisk();
}

void PelrixDataFile::WriteDataToDisk()
{
    const std::string subType = GetFileOverviewInfo<std::string>("FileSubType");
    if (!GetSubData({Names::DATA_SECTION}, false))
    {
        DataFileError("WriteDataToDisk cannot find data section name")
            .RaiseError(Kiv::Core::CodeContext("PelrixDataFile", 1193, KIV_SOURCE_TIME_STAMP,
                                               "Pelrix::PelrixDataFile::WriteDataToDisk",
                                               __PRETTY_FUNCTION__),
                        Names::ALERT_ID, false);
    }
    if (subType != Names::FORCE)
    {
        if (m_OutputStream)
        {
            WriteImageData();
        }
    }
    else
    {
        WriteForceData();
    }
}

void PelrixDataFile::Close()
{
    Lock lock(BeginDataAccess(), Elapse(Elapse::INFINITE, Elapse::SECONDS));
    Flush();
    CloseFileAndStreams();
}

void PelrixDataFile::CloseFileAndStreams()
{
    if (m_OutputStream)
    {
        m_OutputStream->Close();
        m_InputStream.reset();
        m_OutputStream.reset();
    }
    m_FileStream.Close();
    m_FileSize = 0;
}

} // namespace Pelrix
