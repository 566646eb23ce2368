#include "CurveNames.h"

#include <sstream>

namespace Kiv::Export
{

std::string CurveNameWithoutUnit(const std::string& label)
{
    const std::size_t open = label.rfind('(');
    std::string name = open == std::string::npos ? label : label.substr(0, open);
    while (!name.empty() && name.back() == ' ')
    {
        name.pop_back();
    }
    return name;
}

std::string CurveAxisName(const std::string& label)
{
    std::istringstream words(label);
    std::string word;
    std::string name;
    while (words >> word)
    {
        const bool number = word.find_first_not_of("0123456789") == std::string::npos;
        if (number || word == "Approach" || word == "Retract" || word == "Extend" ||
            word == "Retraction")
        {
            continue;
        }
        name += (name.empty() ? "" : " ") + word;
    }
    return name;
}

} // namespace Kiv::Export
