#pragma once

#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "Kiv/DataCore/ModuleTestSuite.h"

namespace Kiv::DataCore
{

// Loading of file-type modules: shared libraries that export
//
//     extern "C" void RegisterDataFileTypes();
//
// which registers their factories through RegisterDataFileFactory. A loaded module is never
// unloaded, since the factories it registered live in it. Every function here may be called
// from any thread; failures raise Kiv::Core::OSError (alert id "Kiv.DataCore.ModuleLoader").

// Loads the module at path and calls its RegisterDataFileTypes. A module already loaded (the
// same file, however its path is spelled) is not loaded or registered again.
void LoadModule(const std::string& path);

// The folders searched for modules: the colon-separated KIV_PLUGIN_PATH when it names any,
// otherwise the folder kiv/plugins beside the loaded DataCore library (the same layout in the
// build tree and in an installed tree).
std::vector<std::string> PluginDirectories();

struct ModuleLoadReport
{
    std::vector<std::string> loaded; // modules this call loaded, as found in their folder
    std::vector<std::string> errors; // one message per module or folder that failed
};

// Loads every *.so file in the plug-in folders, each folder in name order. A folder that does
// not exist is skipped; a module that fails is reported and the others still load.
ModuleLoadReport LoadPluginModules();

// The canonical paths of the loaded modules, in load order.
std::vector<std::string> LoadedModules();

// The test suite of a loaded module, made by its exported GetModuleTestSuite; empty when the
// module exports none or returns none. Raises OSError when the module is not loaded.
boost::shared_ptr<ModuleTestSuite> GetModuleTestSuite(const std::string& modulePath);

} // namespace Kiv::DataCore
