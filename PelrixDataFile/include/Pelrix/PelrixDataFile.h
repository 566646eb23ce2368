#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "Kiv/Core/BinaryFileStream.h"
#include "Kiv/Core/BufferedBinaryInputStream.h"
#include "Kiv/Core/BufferedBinaryOutputStream.h"
#include "Kiv/DataCore/DataFile.h"

namespace Pelrix
{

class FirstLinesSearch;

// One Pelrix SPM file: an 8-bit text header of [Section] lines with key=value lines, ended by
// the line "[Data]", followed by either a block of little-endian float32 image samples at the
// byte "DataOffset", or tab-separated force-curve text lines. Opening parses every section into
// a child container keyed by its bracketed line; a modified file opened for writing is written
// back in place when it is flushed or closed.
class PelrixDataFile : public Kiv::DataCore::DataFile
{
public:
    static const std::string FILE_TYPE;
    static const std::string FILE_DESCRIPTION;
    static const std::uint16_t VERSION;

    // The byte-counting output stream the writer goes through. Only the one-byte write and
    // the 32-bit block write are counted; the count is never reset while the file is open.
    class BufferedBinaryOutputStreamWithByteCounter : public Kiv::Core::BufferedBinaryOutputStream
    {
    public:
        BufferedBinaryOutputStreamWithByteCounter(Kiv::Core::BinaryOutputStream& sink,
                                                  std::size_t bufferSize);
        using Kiv::Core::BufferedBinaryOutputStream::Write;
        void Write(unsigned char byte) override;
        void Write(const void* buffer, std::uint32_t count);
        std::uint32_t GetByteCount() const { return m_ByteCount; }

    private:
        std::uint32_t m_ByteCount = 0;
    };

    using TypeMap = std::map<std::string, int>;

    PelrixDataFile();
    PelrixDataFile(const std::string& fileName, EAccess access, EOpenBehavior behavior);
    ~PelrixDataFile() override;

    // Opens and, unless the access is write-only or the file is empty, reads the file.
    // True when the file stream is open afterwards.
    bool Open(const std::string& fileName, EAccess access, EOpenBehavior behavior);
    static bool IsPelrixFile(const std::string& fileName);

    bool IsOpen() const override;
    void Flush() override;
    void Close() override;
    std::string GetFileName() const override;
    std::string GetFileType() const override;
    std::string DescribeFileType() const override;

    // --- container operations: the top level of a Pelrix file is fixed by its header ---
    void Clear() override;
    boost::shared_ptr<Kiv::DataCore::DataObject> Remove(const std::string& key) override;
    void Append(const Kiv::DataCore::DataContainer& other) override;
    void Assign(const Kiv::DataCore::DataContainer& other) override;
    void CloneContents(const Kiv::DataCore::DataContainer& other) override;
    std::uint64_t InputData(Kiv::Core::BinaryInputStream& in) override;

    // --- change tracking and header editing ---
    void SetContentModified(bool modified);
    bool IsContentModified() const;
    void AddParm(std::string section, std::string key, std::string value);
    void DeleteParm(std::string section, std::string key);

    // The names of the header sections written back for this kind of file.
    std::vector<std::string> GetPlistNames();
    // The text written after "=" for one header value.
    std::string GetFormattedValueString(boost::shared_ptr<Kiv::DataCore::DataContainer> section,
                                        std::string key) const;

protected:
    void OnDataValueChanged(const std::string& key,
                            boost::shared_ptr<Kiv::DataCore::DataObject> object) override;
    void OnDataReferenceChanged(const std::string& key,
                                boost::shared_ptr<Kiv::DataCore::DataObject> object) override;
    void Append(const std::string& key, boost::shared_ptr<Kiv::DataCore::DataObject> object);

private:
    // --- section type maps ---
    void InitHeaderSectionsTypeMaps();
    void InitDataVersionSectionTypeMap();
    void InitDataParametersSectionTypeMap();
    void InitCustomColorTableSectionTypeMap();
    void InitPreProcessingSectionTypeMap();
    void InitDataSectionTypeMap();
    void InitForceDataParameterSectionTypeMap();
    void InitForceSeriesLayoutSectionTypeMap();

    // --- opening and the header reader ---
    // An image's samples as read from the file, before or without their place in the tree.
    struct ImageSamples
    {
        boost::shared_ptr<Kiv::DataCore::FloatMatrix> matrix; // none: not read
        std::int32_t dataOffset = 0;
        std::uint64_t byteCount = 0;
        std::uint64_t delivered = 0;
    };
    void ReadFileContents();
    ImageSamples FinishFileKindLook(FirstLinesSearch& search);
    void PeekToDetermineFileType(bool forceSectionSeen);
    void ReadHeaderLines();
    void NoteHeaderContent();
    bool ReadLine(std::string& line);
    void CountTreeBytes(std::uint64_t bytes);
    void ProcessLine(const std::string& line);
    void SetupNewHeaderSection(const std::string& line);
    void ProcessHeaderSection(const std::string& line);
    void ProcessStringType(const std::string& key, const std::string& value);
    void ProcessIntType(const std::string& key, const std::string& value);
    void ProcessLongType(const std::string& key, const std::string& value);
    void ProcessFloatType(const std::string& key, const std::string& value);
    void ProcessDoubleType(const std::string& key, const std::string& value);
    void ProcessUnitizedType(const std::string& key, const std::string& value);

    // --- data sections ---
    ImageSamples ReadImageSamples(bool createSection);
    void LoadImageData(ImageSamples samples);
    void LoadForceData();
    void ProcessForceData(long seriesCount, long pointCount);
    void WriteImageData();
    void WriteForceData();

    // --- what the writer will not keep ---
    void NoteUnkeptContent(const std::string& description);
    void NoteUnkeptLine(std::int64_t lineNumber, const std::string& line, const std::string& why);
    void NoteUnwrittenSections();
    void NoteBytesAfter(std::int64_t position, const std::string& what);
    void NoteNonZeroPadding(std::int64_t dataOffset);
    // Whether [begin, end) of the file (clipped to its size) holds a byte other than zero, or
    // other than zero, CR and LF when lineBreaksAllowed.
    bool HoldsUnexpectedBytes(std::int64_t begin, std::int64_t end, bool lineBreaksAllowed);
    // Tells the host, in the "ShortData" metadata, that the data block ended before the header
    // said it would: what was missing and read as zero (an interrupted transfer, as a rule).
    void PublishShortData(const std::string& block, double missingBytes, double missingSamples,
                          double missingLines);
    void PublishUnkeptContent();

    // --- overview record ---
    void StorePelrixFileOverviewInfo();
    template <class T>
    T GetFileOverviewInfo(std::string key);

    // --- writer ---
    void WriteHeaderToDisk();
    void WriteHeaderSectionToDisk(std::string sectionName);
    void WriteHeaderPaddingToDisk();
    std::int32_t GetHeaderLength();
    void WriteToBufferedOutputStream(const std::string& text);
    void WriteCountedBlock(const void* data, std::uint64_t count);
    void WriteDataToDisk();
    void WriteFileToDisk();
    void CloseFileAndStreams();
    bool IsFileWritable() const;
    void UpdateContents(const std::string& key,
                        boost::shared_ptr<Kiv::DataCore::DataObject>& object, bool flag);
    void AddDataCallback(const Kiv::DataCore::DataContainer::Entry& entry);
    void CloneDataCallback(const Kiv::DataCore::DataContainer::Entry& entry);

    std::int32_t m_DataPlistCount = 0;
    Kiv::Core::BinaryFileStream m_FileStream;
    boost::shared_ptr<Kiv::Core::BufferedBinaryInputStream> m_InputStream;
    boost::shared_ptr<BufferedBinaryOutputStreamWithByteCounter> m_OutputStream;
    std::uint64_t m_FileSize = 0;
    int m_Access = ACCESS_READ_WRITE;
    std::string m_CurrentSectionName;
    boost::shared_ptr<Kiv::DataCore::DataContainer> m_CurrentSection;
    TypeMap m_CurrentTypeMap;
    std::string m_FileSubType;               // "IMAGE" or "FORCE"; empty until the first open
    std::string m_ForceCurveLabels;          // the last header line holding a comma
    std::int64_t m_ForceCurveLabelsLine = 0; // where this open found it; 0 for none
    std::int64_t m_HeaderLineNumber = 0;
    std::uint64_t m_TreeBytes = 0; // what the header tree of this open takes, roughly
    // Content of the file that saving would drop, published as the side container
    // "UnkeptContent" so that a program can refuse to save rather than lose it.
    std::vector<std::string> m_UnkeptContent;
    std::uint64_t m_UnkeptOverflow = 0;
    std::int64_t m_DataStartPos = 0;
    TypeMap m_DataVersionTypeMap;
    TypeMap m_DataParametersTypeMap;
    TypeMap m_CustomColorTableTypeMap;
    TypeMap m_PreProcessingTypeMap;
    TypeMap m_DataTypeMap;
    std::map<std::string, TypeMap> m_SectionTypeMaps;
    std::vector<std::string> m_PlistNames;
    std::atomic<bool> m_ContentModified{false};
};

// Trimming of header values: only leading white space goes, trailing white space is kept.
bool isSpace(char c);
char* trim(char* text);
// The same rule on a std::string.
std::string TrimLeading(const std::string& text);

} // namespace Pelrix
