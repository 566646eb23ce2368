#include "SurfacePasses.h"

#include <algorithm>
#include <map>

#include "Parallel.h"

namespace Kiv::Analysis::Detail
{

namespace
{
// Below this many samples the values are simply gathered and selected from.
const std::uint64_t GATHER_ALL_BELOW = 1 << 16;
const std::size_t HISTOGRAM_BINS = 1 << 16;

// Equal-width bins over the samples' range; the bin of a value is computed the same way by the
// counting pass and the gathering pass, so a value is looked for where it was counted.
class Bins
{
public:
    explicit Bins(const Extent& extent, std::size_t count = HISTOGRAM_BINS)
        : m_Minimum(extent.minimum),
          m_Scale(static_cast<double>(count) / (extent.maximum - extent.minimum)), m_Last(count - 1)
    {
    }

    std::size_t Of(double value) const
    {
        const double position = (value - m_Minimum) * m_Scale;
        const auto bin = position > 0 ? static_cast<std::size_t>(position) : std::size_t{0};
        return std::min(bin, m_Last);
    }

private:
    double m_Minimum;
    double m_Scale;
    std::size_t m_Last;
};

// Calls visit(value) for every usable sample; one visitor state per thread.
template <class State, class Visit>
std::vector<State> VisitUsable(const Surface& surface, const Usable& usable, Visit visit)
{
    const ImageView& image = surface.image;
    const RowBlocks blocks = MakeRowBlocks(image.rows, image.columns);
    const unsigned threads = ThreadsFor(image.Count());
    std::vector<State> states(std::max(1u, threads));
    RunBlocks(blocks, threads,
              [&](std::size_t block, unsigned thread)
              {
                  std::vector<double> row(image.columns);
                  for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
                  {
                      surface.Row(r, row.data());
                      const std::size_t first = r * image.columns;
                      for (std::size_t c = 0; c < image.columns; ++c)
                      {
                          if (usable.Includes(row[c], first + c))
                          {
                              visit(states[thread], row[c]);
                          }
                      }
                  }
              });
    return states;
}
} // namespace

Extent MeasureExtent(const Surface& surface, const Usable& usable)
{
    const ImageView& image = surface.image;
    const RowBlocks blocks = MakeRowBlocks(image.rows, image.columns);
    std::vector<Extent> parts(blocks.Count());
    RunBlocks(blocks, ThreadsFor(image.Count()),
              [&](std::size_t block, unsigned)
              {
                  std::vector<double> row(image.columns);
                  Extent& part = parts[block];
                  for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
                  {
                      surface.Row(r, row.data());
                      const std::size_t first = r * image.columns;
                      for (std::size_t c = 0; c < image.columns; ++c)
                      {
                          const double value = row[c];
                          if (usable.Includes(value, first + c))
                          {
                              ++part.count;
                              part.sum += value;
                              part.minimum = std::min(part.minimum, value);
                              part.maximum = std::max(part.maximum, value);
                          }
                      }
                  }
              });
    Extent extent;
    for (const Extent& part : parts)
    {
        extent.count += part.count;
        extent.sum += part.sum;
        extent.minimum = std::min(extent.minimum, part.minimum);
        extent.maximum = std::max(extent.maximum, part.maximum);
    }
    return extent;
}

std::vector<double> ValuesAtRanks(const Surface& surface, const Usable& usable,
                                  const Extent& extent, const std::vector<std::uint64_t>& ranks)
{
    std::vector<double> values(ranks.size(), extent.minimum);
    if (extent.count == 0 || extent.minimum == extent.maximum)
    {
        return values;
    }
    if (extent.count < GATHER_ALL_BELOW)
    {
        std::vector<double> all;
        all.reserve(extent.count);
        for (const auto& part : VisitUsable<std::vector<double>>(
                 surface, usable,
                 [](std::vector<double>&kept, double value) { kept.push_back(value); }))
        {
            all.insert(all.end(), part.begin(), part.end());
        }
        for (std::size_t i = 0; i < ranks.size(); ++i)
        {
            std::nth_element(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(ranks[i]),
                             all.end());
            values[i] = all[ranks[i]];
        }
        return values;
    }

    // Count the samples a bin, find the bin of each rank, then gather only those bins' samples.
    const Bins bins(extent);
    std::vector<std::uint64_t> counts(HISTOGRAM_BINS, 0);
    for (const auto& part : VisitUsable<std::vector<std::uint64_t>>(
             surface, usable,
             [&bins](std::vector<std::uint64_t>&histogram, double value)
             {
                 if (histogram.empty())
                 {
                     histogram.assign(HISTOGRAM_BINS, 0);
                 }
                 ++histogram[bins.Of(value)];
             }))
    {
        for (std::size_t bin = 0; bin < part.size(); ++bin)
        {
            counts[bin] += part[bin];
        }
    }
    // For each rank: its bin and its rank among that bin's samples.
    std::vector<std::pair<std::size_t, std::uint64_t>> places;
    for (const std::uint64_t rank : ranks)
    {
        std::uint64_t below = 0;
        std::size_t bin = 0;
        while (below + counts[bin] <= rank)
        {
            below += counts[bin++];
        }
        places.emplace_back(bin, rank - below);
    }
    std::vector<std::size_t> wanted;
    for (const auto& place : places)
    {
        wanted.push_back(place.first);
    }
    std::sort(wanted.begin(), wanted.end());
    wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
    using Gathered = std::map<std::size_t, std::vector<double>>;
    Gathered gathered;
    for (auto& part :
         VisitUsable<Gathered>(surface, usable,
                               [&](Gathered&kept, double value)
                               {
                                   const std::size_t bin = bins.Of(value);
                                   if (std::binary_search(wanted.begin(), wanted.end(), bin))
                                   {
                                       kept[bin].push_back(value);
                                   }
                               }))
    {
        for (auto& [bin, kept] : part)
        {
            auto& all = gathered[bin];
            all.insert(all.end(), kept.begin(), kept.end());
        }
    }
    for (std::size_t i = 0; i < places.size(); ++i)
    {
        auto& inBin = gathered[places[i].first];
        const auto nth = inBin.begin() + static_cast<std::ptrdiff_t>(places[i].second);
        std::nth_element(inBin.begin(), nth, inBin.end());
        values[i] = *nth;
    }
    return values;
}

std::pair<double, double> ValuesAtRankAndNext(double* values, std::size_t count, std::size_t rank)
{
    const std::size_t next = std::min(rank + 1, count - 1);
    const std::size_t PLAIN_BELOW = 1 << 12;
    if (count >= PLAIN_BELOW)
    {
        // One count a bin tells which bin holds the rank; only that bin is then selected from.
        const auto [least, most] = std::minmax_element(values, values + count);
        Extent extent;
        extent.minimum = *least;
        extent.maximum = *most;
        if (extent.minimum == extent.maximum)
        {
            return {extent.minimum, extent.minimum};
        }
        // A bin for every 64 values or so keeps the counts in the cache.
        const std::size_t binCount = std::min(HISTOGRAM_BINS, count / 64);
        const Bins bins(extent, binCount);
        std::vector<std::size_t> counts(binCount, 0);
        for (std::size_t i = 0; i < count; ++i)
        {
            ++counts[bins.Of(values[i])];
        }
        std::size_t below = 0;
        std::size_t bin = 0;
        while (below + counts[bin] <= rank)
        {
            below += counts[bin++];
        }
        double* const inBin = values;
        const std::size_t inBinCount = static_cast<std::size_t>(
            std::partition(values, values + count, [&](double v) { return bins.Of(v) == bin; }) -
            values);
        double* const nth = inBin + (rank - below);
        std::nth_element(inBin, nth, inBin + inBinCount);
        if (next == rank)
        {
            return {*nth, *nth};
        }
        if (next - below < inBinCount)
        {
            return {*nth, *std::min_element(nth + 1, inBin + inBinCount)};
        }
        // The next rank is the smallest value of a later bin: the smallest above this one.
        double following = std::numeric_limits<double>::infinity();
        for (const double* value = inBin + inBinCount; value < values + count; ++value)
        {
            if (*value > *nth)
            {
                following = std::min(following, *value);
            }
        }
        return {*nth, following};
    }
    double* const nth = values + rank;
    std::nth_element(values, nth, values + count);
    return {*nth, next == rank ? *nth : *std::min_element(nth + 1, values + count)};
}

QuantileRanks RanksOfQuantile(std::uint64_t count, double quantile)
{
    QuantileRanks ranks;
    if (count == 0)
    {
        return ranks;
    }
    const double position = static_cast<double>(count - 1) * quantile;
    ranks.low = std::min<std::uint64_t>(static_cast<std::uint64_t>(position), count - 1);
    ranks.high = std::min<std::uint64_t>(ranks.low + 1, count - 1);
    ranks.weight = position - static_cast<double>(ranks.low);
    return ranks;
}

double Interpolate(const QuantileRanks& ranks, double low, double high)
{
    // numpy's form, which gives the value itself at a whole rank and stays exact when both are
    // equal.
    return ranks.weight == 0.0 ? low : low + (high - low) * ranks.weight;
}

double SurfaceQuantile(const Surface& surface, const Usable& usable, double quantile)
{
    const Extent extent = MeasureExtent(surface, usable);
    if (extent.count == 0)
    {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const QuantileRanks ranks = RanksOfQuantile(extent.count, quantile);
    const auto values = ValuesAtRanks(surface, usable, extent, {ranks.low, ranks.high});
    return Interpolate(ranks, values[0], values[1]);
}

double QuantileInPlace(double* values, std::size_t count, double quantile)
{
    if (count == 0)
    {
        return std::numeric_limits<double>::quiet_NaN();
    }
    const QuantileRanks ranks = RanksOfQuantile(count, quantile);
    double* const low = values + ranks.low;
    std::nth_element(values, low, values + count);
    double high = *low;
    if (ranks.high != ranks.low)
    {
        // After nth_element everything past low is at least *low: the next rank is their
        // smallest.
        high = *std::min_element(low + 1, values + count);
    }
    return Interpolate(ranks, *low, high);
}

} // namespace Kiv::Analysis::Detail
