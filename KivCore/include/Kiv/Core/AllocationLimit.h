#pragma once

#include <cstdint>
#include <string>

namespace Kiv::Core
{

// The most bytes that one file open may allocate for its data. File readers compute the size
// of what a header asks for and check it here before allocating, so that a corrupt or hostile
// header ends in AllocationFailed instead of exhausting the machine.
//
// The limit is, in order of precedence: the value given to SetMaxAllocationBytes; the
// environment variable KIV_MAX_ALLOC_MB (a positive whole number of MiB), read at first use;
// half of the machine's physical memory. An invalid KIV_MAX_ALLOC_MB is reported as a warning
// and ignored. Every function here may be called from any thread.
std::uint64_t GetMaxAllocationBytes();

// Sets the limit for the whole process. A limit of zero would refuse every file and is
// rejected with LogicError.
void SetMaxAllocationBytes(std::uint64_t bytes);

// Forgets a limit set through SetMaxAllocationBytes; the next use reads the environment again.
void ResetMaxAllocationBytes();

// Raises AllocationFailed (alert id "Kiv.Core.Allocation") when bytes exceed the limit. The
// message names what was to be allocated, its size and the limit.
void CheckAllocation(std::uint64_t bytes, const std::string& what);

// Stores a * b in product and returns true, or returns false (product unchanged) when the
// product does not fit in 64 bits.
bool MultiplyWithoutOverflow(std::uint64_t a, std::uint64_t b, std::uint64_t& product);

} // namespace Kiv::Core
