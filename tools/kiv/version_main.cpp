// Prints the library version and which unit texts the unit dictionary resolves.
#include <iostream>
#include <string>

#include "Kiv/Core/UnitizedValue.h"

int main()
{
    std::cout << "kiv " << KIV_VERSION << "\n";
    const char* const samples[] = {"nm",  "\xB5m", "\xB5m/s", "\xB5m/V", "nm/V",
                                   "N/m", "V",     "Hz",      "deg",     "%"};
    auto& dictionary = *Kiv::Core::UnitizedValueBase::sm_spGlobalDictionary;
    for (const std::string text : samples)
    {
        const auto unit = dictionary.LookupUnit(text, nullptr);
        std::cout << "  " << text << ": "
                  << (unit ? "1 " + text + " = " + std::to_string(unit->ConvertToBaseUnits(1.0)) +
                                 " in base units"
                           : std::string("unknown"))
                  << "\n";
    }
    return 0;
}
