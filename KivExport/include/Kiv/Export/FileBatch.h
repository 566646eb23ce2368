#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Kiv::Export
{

struct BatchProgress
{
    std::size_t done = 0;
    std::size_t total = 0;
    double seconds = 0.0;
};

// Work on many files, each independently, a few at a time: what kiv export and kiv stats (and
// any front end doing either) run over their inputs.
struct FileBatch
{
    std::vector<std::string> inputs;
    // Files worked on at once; 0 means one per processor. Never more threads than inputs.
    unsigned jobs = 0;
    // The work on inputs[index], on a worker thread; a raised error fails that input alone.
    std::function<void(std::size_t index)> work;
    // The one-line message of the error being handled for inputs[index]; FailureLine when
    // not given.
    std::function<std::string(std::size_t index)> describeFailure;
    // After each input, one call at a time: failure is empty when the input succeeded.
    std::function<void(std::size_t index, const std::string& failure, const BatchProgress&)>
        finished;
};

// Runs batch.work over every input; returns the number of inputs that failed.
std::size_t RunFileBatch(const FileBatch& batch);

// The error being handled as one line that names input, unless it already names input or
// alsoNamed (an output, say).
std::string FailureLine(const std::string& input, const std::string& alsoNamed = std::string());

} // namespace Kiv::Export
