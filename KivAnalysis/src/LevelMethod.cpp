#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "Background.h"
#include "Kiv/Analysis/Levelling.h"

namespace Kiv::Analysis
{

namespace
{
std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true)
    {
        const std::size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end - start));
        if (end == std::string::npos)
        {
            return parts;
        }
        start = end + 1;
    }
}

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

[[noreturn]] void Refuse(const std::string& text, const std::string& why)
{
    throw std::invalid_argument("levelling \"" + text + "\": " + why +
                                "; methods: " + LevelMethodSpellings());
}

// A whole decimal number and nothing else.
bool ParseNumber(const std::string& text, double& value)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front())))
    {
        return false;
    }
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && std::isfinite(value);
}

int ParseDegree(const std::string& method, const std::string& text)
{
    double degree = 0;
    if (!ParseNumber(text, degree) || degree != std::floor(degree) || degree < 0 ||
        degree > Detail::MAX_DEGREE)
    {
        Refuse(method, "the degree \"" + text + "\" is not a whole number from 0 to " +
                           std::to_string(Detail::MAX_DEGREE));
    }
    return static_cast<int>(degree);
}

// Parses one step; false for "none", which adds nothing.
bool ParseStep(const std::string& method, const std::string& text, LevelStep& step)
{
    const std::vector<std::string> words = Split(Lower(text), ':');
    const std::string& name = words[0];
    const std::size_t count = words.size();
    if (name == "none" && count == 1)
    {
        return false;
    }
    if (name == "plane" && count == 1)
    {
        step = {StepKind::Plane, 1, 0.5};
        return true;
    }
    if (name == "poly" && count == 2)
    {
        step = {StepKind::Polynomial, ParseDegree(method, words[1]), 0.5};
        return true;
    }
    if (name == "zero" && count == 2 && (words[1] == "min" || words[1] == "mean"))
    {
        step = {words[1] == "min" ? StepKind::ZeroMinimum : StepKind::ZeroMean, 0, 0.5};
        return true;
    }
    if (name != "rows")
    {
        Refuse(method, "unknown step \"" + text + "\"");
    }
    const std::string kind = count > 1 ? words[1] : "median";
    if ((kind == "median" || kind == "mean" || kind == "mediandiff") && count <= 2)
    {
        step.kind = kind == "median" ? StepKind::RowsMedian
                    : kind == "mean" ? StepKind::RowsMean
                                     : StepKind::RowsMedianDifference;
        return true;
    }
    if (kind == "poly" && count == 3)
    {
        step = {StepKind::RowsPolynomial, ParseDegree(method, words[2]), 0.5};
        return true;
    }
    if (kind == "quantile" && count == 3)
    {
        double quantile = 0;
        if (!ParseNumber(words[2], quantile) || quantile < 0 || quantile > 1)
        {
            Refuse(method, "the quantile \"" + words[2] + "\" is not a number from 0 to 1");
        }
        step = {StepKind::RowsQuantile, 0, quantile};
        return true;
    }
    Refuse(method, "unknown step \"" + text + "\"");
}

// The shortest text that reads back as the same number.
std::string NumberText(double value)
{
    char text[32];
    for (int digits = 1; digits <= 17; ++digits)
    {
        std::snprintf(text, sizeof text, "%.*g", digits, value);
        if (std::strtod(text, nullptr) == value)
        {
            break;
        }
    }
    return text;
}

std::string StepText(const LevelStep& step)
{
    switch (step.kind)
    {
    case StepKind::Plane:
        return "plane";
    case StepKind::Polynomial:
        return "poly:" + std::to_string(step.degree);
    case StepKind::RowsMedian:
        return "rows:median";
    case StepKind::RowsMean:
        return "rows:mean";
    case StepKind::RowsQuantile:
        return "rows:quantile:" + NumberText(step.quantile);
    case StepKind::RowsPolynomial:
        return "rows:poly:" + std::to_string(step.degree);
    case StepKind::RowsMedianDifference:
        return "rows:mediandiff";
    case StepKind::ZeroMinimum:
        return "zero:min";
    case StepKind::ZeroMean:
        return "zero:mean";
    }
    return "";
}
} // namespace

LevelMethod::LevelMethod(std::vector<LevelStep> steps) : m_Steps(std::move(steps)) {}

LevelMethod LevelMethod::Parse(const std::string& text)
{
    std::vector<LevelStep> steps;
    for (const std::string& part : Split(text, '+'))
    {
        LevelStep step;
        if (ParseStep(text, part, step))
        {
            steps.push_back(step);
        }
    }
    return LevelMethod(std::move(steps));
}

std::string LevelMethod::Text() const
{
    if (m_Steps.empty())
    {
        return "none";
    }
    std::string text;
    for (const LevelStep& step : m_Steps)
    {
        text += (text.empty() ? "" : "+") + StepText(step);
    }
    return text;
}

std::string LevelMethodSpellings()
{
    return "none, plane, poly:N, rows (rows:median), rows:mean, rows:poly:N, rows:mediandiff, "
           "rows:quantile:Q, zero:min, zero:mean (N from 0 to 4, Q from 0 to 1), joined with "
           "'+' to apply in turn";
}

void CheckExclusion(const Exclusion& exclusion)
{
    for (const auto& threshold : {exclusion.above, exclusion.below})
    {
        if (threshold && !std::isfinite(*threshold))
        {
            throw std::invalid_argument("a height threshold must be a finite number");
        }
    }
    if (exclusion.abovePercentile &&
        !(*exclusion.abovePercentile >= 0 && *exclusion.abovePercentile <= 100))
    {
        throw std::invalid_argument("a percentile must be a number from 0 to 100");
    }
}

} // namespace Kiv::Analysis
