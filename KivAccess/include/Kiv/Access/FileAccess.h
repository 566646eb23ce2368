#pragma once

#include <functional>
#include <string>

#include <boost/shared_ptr.hpp>

#include "Kiv/DataCore/DataFile.h"

namespace Kiv::Access
{

// Loads every file-type module of the plug-in folders once. A module that fails to load is
// reported on stderr as a warning; the others are still used.
void LoadFileTypeModules();
// The same, once per process whichever thread calls first, handing each warning (one line,
// UTF-8) to warn instead.
void LoadFileTypeModules(const std::function<void(const std::string&)>& warn);

// Raises "PATH: reason" unless path names an existing regular file the user may read.
void RequireReadableFile(const std::string& path);

// Opens a file through the registered file types. Every failure raises one message that names
// the file as displayName and says why, never the path of a temporary copy.
boost::shared_ptr<Kiv::DataCore::DataFile>
OpenDataFile(const std::string& path, Kiv::DataCore::DataFile::EAccess access,
             Kiv::DataCore::DataFile::EOpenBehavior behavior, const std::string& displayName);

// A file opened for reading, after RequireReadableFile.
boost::shared_ptr<Kiv::DataCore::DataFile> OpenForReading(const std::string& path);

// Replaces every occurrence of from in text by to.
std::string ReplaceAll(std::string text, const std::string& from, const std::string& to);

} // namespace Kiv::Access
