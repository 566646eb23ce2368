#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

#include <benchmark/benchmark.h>

namespace KivBench
{

// The wall-clock durations of one kind of operation, one per round.
class DurationSamples
{
public:
    void Add(double seconds) { m_Seconds.push_back(seconds); }
    std::size_t Count() const { return m_Seconds.size(); }
    double At(std::size_t round) const { return m_Seconds[round]; }
    double Median() const { return MedianOf(m_Seconds); }
    double Best() const
    {
        return m_Seconds.empty() ? 0.0 : *std::min_element(m_Seconds.begin(), m_Seconds.end());
    }

    static double MedianOf(std::vector<double> values)
    {
        if (values.empty())
        {
            return 0.0;
        }
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

private:
    std::vector<double> m_Seconds;
};

// Measures the plug-in's operation and its baseline side by side in the same iterations, so
// that both see the same machine load and page cache; the ratio is what the targets are about.
// On a machine shared with other work a round is now and then slowed by a burst of load; the
// median of the rounds' own ratios shrugs that off where means and totals do not.
//
// Only the plug-in's operation runs on the benchmark's own real-time clock: the baseline and
// every set-up and clean-up run with that timer paused. The time column is therefore the mean
// of the plug-in's rounds, which a few slowed rounds can pull far above the median.
class PairedTiming
{
public:
    using Clock = std::chrono::steady_clock;

    explicit PairedTiming(benchmark::State& state) : m_State(state) {}

    template <class Operation>
    void Plugin(Operation&& operation)
    {
        const auto start = Clock::now();
        operation();
        m_Plugin.Add(SecondsSince(start));
    }

    template <class Operation>
    void Baseline(Operation&& operation)
    {
        Untimed(
            [&]
            {
                const auto start = Clock::now();
                operation();
                m_Baseline.Add(SecondsSince(start));
            });
    }

    // Set-up and clean-up, left out of the benchmark's time.
    template <class Operation>
    void Untimed(Operation&& operation)
    {
        m_State.PauseTiming();
        operation();
        m_State.ResumeTiming();
    }

    // Alternating which of the two goes first keeps a systematic cache or write-back effect
    // of the first from landing on one side only.
    bool NextRoundRunsBaselineFirst() { return (m_Round++ % 2) == 1; }

    // plugin_ms and baseline_ms are medians; ratio is the median of the rounds' ratios,
    // ratio_best compares the fastest round of each side.
    void ReportCounters() const
    {
        m_State.counters["plugin_ms"] = m_Plugin.Median() * 1e3;
        m_State.counters["baseline_ms"] = m_Baseline.Median() * 1e3;
        const std::size_t rounds = std::min(m_Plugin.Count(), m_Baseline.Count());
        std::vector<double> ratios;
        for (std::size_t round = 0; round < rounds; ++round)
        {
            if (m_Baseline.At(round) > 0.0)
            {
                ratios.push_back(m_Plugin.At(round) / m_Baseline.At(round));
            }
        }
        if (!ratios.empty())
        {
            m_State.counters["ratio"] = DurationSamples::MedianOf(ratios);
            m_State.counters["ratio_best"] = m_Plugin.Best() / m_Baseline.Best();
        }
    }

    // Text per second in MB (10^6 bytes), from the plug-in's median and fastest round.
    void ReportMegabytesPerSecond(double bytesPerOperation) const
    {
        if (m_Plugin.Median() > 0.0)
        {
            m_State.counters["MB_per_s"] = bytesPerOperation / m_Plugin.Median() / 1e6;
            m_State.counters["MB_per_s_best"] = bytesPerOperation / m_Plugin.Best() / 1e6;
        }
    }

private:
    static double SecondsSince(Clock::time_point start)
    {
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

    benchmark::State& m_State;
    DurationSamples m_Plugin;
    DurationSamples m_Baseline;
    long m_Round = 0;
};

} // namespace KivBench
