#include "Pelrix/PelrixDataFile.h"

#include "PelrixIdentity.h"

namespace Pelrix
{

using namespace Kiv::DataCore;

// Each Init... fills a per-section member and copies it under the section's name. Two of them
// fill a member an earlier one filled already, so their sections also carry that section's
// keys: the force parameters carry "Leveling", the series layout the data-parameter keys.
void PelrixDataFile::InitHeaderSectionsTypeMaps()
{
    InitDataVersionSectionTypeMap();
    InitDataParametersSectionTypeMap();
    InitCustomColorTableSectionTypeMap();
    InitPreProcessingSectionTypeMap();
    InitDataSectionTypeMap();
    InitForceDataParameterSectionTypeMap();
    InitForceSeriesLayoutSectionTypeMap();
}

void PelrixDataFile::InitDataVersionSectionTypeMap()
{
    m_SectionTypeMaps["[Data Version]"] = m_DataVersionTypeMap;
}

void PelrixDataFile::InitDataParametersSectionTypeMap()
{
    m_DataParametersTypeMap["DataOffset"] = KindLong;
    m_DataParametersTypeMap["ScanRangeX"] = KindUnitized;
    m_DataParametersTypeMap["ScanRangeY"] = KindUnitized;
    m_DataParametersTypeMap["ResolutionX"] = KindLong;
    m_DataParametersTypeMap["ResolutionY"] = KindLong;
    m_DataParametersTypeMap["Color Table Index"] = KindLong;
    m_SectionTypeMaps[Names::DATA_PARAMETERS_SECTION] = m_DataParametersTypeMap;
}

void PelrixDataFile::InitCustomColorTableSectionTypeMap()
{
    m_SectionTypeMaps["[Custom Color Table]"] = m_CustomColorTableTypeMap;
}

void PelrixDataFile::InitPreProcessingSectionTypeMap()
{
    m_PreProcessingTypeMap["Leveling"] = KindString;
    m_SectionTypeMaps["[PreProcessing]"] = m_PreProcessingTypeMap;
}

void PelrixDataFile::InitDataSectionTypeMap()
{
    m_DataTypeMap[Names::RAW_DATA] = KindRawData;
    m_SectionTypeMaps[Names::DATA_SECTION] = m_DataTypeMap;
}

void PelrixDataFile::InitForceDataParameterSectionTypeMap()
{
    // Kept as text although they carry a unit ("750.0000 µm/s").
    m_PreProcessingTypeMap["Approach Rate"] = KindString;
    m_PreProcessingTypeMap["Retreat Rate"] = KindString;
    m_PreProcessingTypeMap["Z Start"] = KindUnitized;
    m_PreProcessingTypeMap["Z End"] = KindUnitized;
    m_PreProcessingTypeMap["Drive Start"] = KindUnitized;
    m_PreProcessingTypeMap["Drive End"] = KindUnitized;
    m_SectionTypeMaps[Names::FORCE_SECTION] = m_PreProcessingTypeMap;
}

void PelrixDataFile::InitForceSeriesLayoutSectionTypeMap()
{
    m_DataParametersTypeMap["Points Number"] = KindLong;
    m_DataParametersTypeMap["Series Number"] = KindLong;
    m_SectionTypeMaps[Names::SERIES_LAYOUT_SECTION] = m_DataParametersTypeMap;
}

} // namespace Pelrix
