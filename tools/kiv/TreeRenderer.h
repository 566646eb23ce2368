#pragma once

#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Tool
{

// The whole tree of an opened file, as text (indented, one entry a line) or as JSON of the
// form {"file": PATH, "fileType": TYPE, "entries": {...}}. withData adds every sample of
// matrices; without it a matrix shows its shape and figures.
void WriteTextDump(std::ostream& out, const std::string& path, Kiv::DataCore::DataFile& file,
                   bool withData);
nlohmann::ordered_json MakeJsonDump(const std::string& path, Kiv::DataCore::DataFile& file,
                                    bool withData);

// One value as the JSON dump shows it.
nlohmann::ordered_json ValueToJson(const boost::shared_ptr<Kiv::DataCore::DataObject>& object,
                                   bool withData);

// Indented JSON in which an array of plain values, or an object of plain values and such
// arrays, stays on one line: one typed value a line, one matrix row a line. Ends with a line
// feed.
void WriteJson(std::ostream& out, const nlohmann::ordered_json& value);

} // namespace Kiv::Tool
