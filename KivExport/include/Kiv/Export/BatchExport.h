#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Kiv/Export/Export.h"
#include "Kiv/Export/FileBatch.h"

namespace Kiv::Export
{

// Where the outputs of a batch go: one named output (for one input), a folder, or beside each
// input; every output but the named one is named after its input with the format's extension.
struct BatchTarget
{
    std::optional<std::string> outputFile;
    std::optional<std::string> outputFolder;
};

struct BatchRequest
{
    std::vector<std::string> inputs;
    Format format = Format::Npy;
    BatchTarget target;
    ExportOptions options;
    bool overwrite = false;
    // Files exported at once; 0 means one per processor.
    unsigned jobs = 0;
};

struct BatchSummary
{
    std::size_t total = 0;
    std::size_t exported = 0;
    std::size_t failed = 0;
};

// Called by the worker threads, one call at a time.
struct BatchObserver
{
    std::function<void(const BatchProgress&)> progress;
    // The one-line message of a failed file; it names the file.
    std::function<void(const std::string&)> failure;
};

// The output path of input under the target.
std::string OutputPathFor(const std::string& input, Format format, const BatchTarget& target);

// Exports every input, each independently, on request.jobs threads; a failure is reported and
// the others go on. Raises Kiv::Access::Failure for a request that cannot start (an output
// file named for several inputs, a folder that is not there).
BatchSummary RunBatchExport(const BatchRequest& request, const BatchObserver& observer);

} // namespace Kiv::Export
