#include "Kiv/Analysis/Levelling.h"

#include <cmath>

#include "Fits.h"
#include "Parallel.h"
#include "RowKernels.h"

namespace Kiv::Analysis
{

void LevelInto(const ImageView& image, const LevelMethod& method, const Exclusion& exclusion,
               float* levelled)
{
    const Detail::Background background = Detail::FitBackground(image, method, exclusion);
    const Detail::RowBlocks blocks = Detail::MakeRowBlocks(image.rows, image.columns);
    Detail::RunBlocks(blocks, Detail::ThreadsFor(image.Count()),
                      [&](std::size_t block, unsigned)
                      {
                          std::vector<double> row(image.columns);
                          for (std::size_t r = blocks.Begin(block); r < blocks.End(block); ++r)
                          {
                              background.Residual(image, r, row.data());
                              const float* in = image.samples + r * image.columns;
                              float* out = levelled + r * image.columns;
                              const bool whole = Detail::AllFinite(row.data(), image.columns);
                              Detail::NarrowRow(row.data(), image.columns, out);
                              for (std::size_t c = 0; c < image.columns && !whole; ++c)
                              {
                                  // Dropouts keep their own bits.
                                  if (!std::isfinite(in[c]))
                                  {
                                      out[c] = in[c];
                                  }
                              }
                          }
                      });
}

std::vector<float> Level(const ImageView& image, const LevelMethod& method,
                         const Exclusion& exclusion)
{
    std::vector<float> levelled(image.Count());
    LevelInto(image, method, exclusion, levelled.data());
    return levelled;
}

} // namespace Kiv::Analysis
