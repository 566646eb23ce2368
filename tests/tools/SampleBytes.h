#pragma once

#include <string>
#include <vector>

namespace KivToolTest
{

// Reads the sample files the plain way, from their bytes and without any module, so that what
// kiv reports can be checked against what the files hold.

// The text after "KEY=" on the header line of that key, or "" when there is none.
std::string HeaderValue(const std::string& bytes, const std::string& key);

// The image's little-endian floats at "DataOffset", row by row.
std::vector<float> ImageSamples(const std::string& bytes);

// The force file's data lines after "[Data]", each split at its tabs.
std::vector<std::vector<float>> ForceRows(const std::string& bytes);

// The force file's labels line, split at its commas (Latin-1).
std::vector<std::string> ForceLabels(const std::string& bytes);

std::string Latin1ToUtf8(const std::string& latin1);

// The image sample with an empty "ScanRangeY": it reads as 0 without a unit, which the writer
// puts back as "0.0000", a text that no longer reads as a number with a unit. The line's bytes
// come out of the padding, so that the samples stay at "DataOffset".
std::string ImageWithEmptyScanRange();

} // namespace KivToolTest
