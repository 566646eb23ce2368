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
// The JSON form is written as the tree is walked, so that its memory stays small whatever the
// file holds.
void WriteJsonDump(std::ostream& out, const std::string& path, Kiv::DataCore::DataFile& file,
                   bool withData);

// Indented JSON in which an array of plain values, or an object of plain values and such
// arrays, stays on one line: one typed value a line, one matrix row a line. Ends with a line
// feed.
void WriteJson(std::ostream& out, const nlohmann::ordered_json& value);

} // namespace Kiv::Tool
