// The module's whole public face: what the host looks up after loading it.
#include "Kiv/DataCore/ModuleTestSuite.h"
#include "Pelrix/PelrixDataFileFactory.h"
#include "Pelrix/PelrixSelfTest.h"

namespace
{
// Set once; the host registers modules from one thread at start-up.
bool g_Registered = false;
} // namespace

extern "C"
{
    __attribute__((visibility("default"))) void RegisterDataFileTypes()
    {
        if (g_Registered)
        {
            return;
        }
        Kiv::DataCore::RegisterDataFileFactory(typeid(Pelrix::PelrixDataFile),
                                               boost::make_shared<Pelrix::PelrixDataFileFactory>());
        g_Registered = true;
    }

    __attribute__((visibility("default"))) Kiv::DataCore::ModuleTestSuite* GetModuleTestSuite()
    {
        return Pelrix::MakeSelfTestSuite().release();
    }
}
