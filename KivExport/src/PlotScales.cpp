#include "PlotScales.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Kiv::Export
{

namespace
{
double RoundStep(double rough)
{
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0, 10.0})
    {
        if (factor * power >= rough)
        {
            return factor * power;
        }
    }
    return 10.0 * power;
}
} // namespace

std::pair<double, std::string> RoundLength(double maxMetres)
{
    const double power = std::pow(10.0, std::floor(std::log10(maxMetres)));
    double length = power;
    for (const double factor : {5.0, 2.0, 1.0})
    {
        if (factor * power <= maxMetres * (1.0 + 1e-9))
        {
            length = factor * power;
            break;
        }
    }
    struct Unit
    {
        const char* name;
        double metres;
    };
    const Unit units[] = {{"m", 1.0}, {"mm", 1e-3}, {"µm", 1e-6}, {"nm", 1e-9}, {"pm", 1e-12}};
    for (const Unit& unit : units)
    {
        if (length >= unit.metres * (1.0 - 1e-9) || unit.metres == 1e-12)
        {
            char text[32];
            std::snprintf(text, sizeof text, "%g %s", length / unit.metres, unit.name);
            return {length, text};
        }
    }
    return {length, ""};
}

std::vector<double> RoundTicks(double low, double high, int count)
{
    std::vector<double> ticks;
    if (!(high > low) || count < 1)
    {
        return ticks;
    }
    const double step = RoundStep((high - low) / count);
    for (double tick = std::ceil(low / step - 1e-9) * step; tick <= high + step * 1e-9;
         tick += step)
    {
        ticks.push_back(std::fabs(tick) < step * 1e-9 ? 0.0 : tick);
    }
    return ticks;
}

std::string LabelNumber(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", value);
    std::string label = text;
    if (!label.empty() && label[0] == '-')
    {
        label = "\u2212" + label.substr(1);
    }
    return label;
}

std::pair<double, double> PercentileRange(const float* samples, std::size_t count, double low,
                                          double high)
{
    std::vector<float> finite;
    finite.reserve(count);
    std::copy_if(samples, samples + count, std::back_inserter(finite),
                 [](float value) { return std::isfinite(value); });
    if (finite.empty())
    {
        return {0.0, 1.0};
    }
    const auto at = [&finite](double fraction)
    {
        const auto index =
            static_cast<std::size_t>(fraction * static_cast<double>(finite.size() - 1) + 0.5);
        std::nth_element(finite.begin(), finite.begin() + static_cast<std::ptrdiff_t>(index),
                         finite.end());
        return static_cast<double>(finite[index]);
    };
    double lowValue = at(low);
    double highValue = at(high);
    if (!(highValue > lowValue))
    {
        const double half = lowValue == 0.0 ? 0.5 : std::fabs(lowValue) * 0.5;
        lowValue -= half;
        highValue += half;
    }
    return {lowValue, highValue};
}

} // namespace Kiv::Export
