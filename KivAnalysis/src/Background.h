#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "Kiv/Analysis/ImageView.h"
#include "RowKernels.h"

namespace Kiv::Analysis::Detail
{

// The highest polynomial degree a fit takes; past it a least-squares fit on a grid is more
// likely to follow noise than a background.
constexpr int MAX_DEGREE = 4;

// What the levelling steps have removed so far. Every step's background (plane, 2-D polynomial,
// row offsets, row polynomials, a constant) is, row by row, a polynomial in the column, so their
// sum is kept as one such polynomial a row. The column enters scaled to u in [-1, 1] and the row
// to v in [-1, 1], which keeps the fits' equations well conditioned at every image size.
class Background
{
public:
    Background(std::size_t rows, std::size_t columns);

    std::size_t Rows() const { return m_Rows; }
    std::size_t Columns() const { return m_Columns; }
    double U(std::size_t column) const { return m_U[column]; }
    double V(std::size_t row) const;
    int Degree() const { return m_Degree; }

    // Adds sum of coefficients[k] * u^k, k = 0..degree, to one row.
    void AddToRow(std::size_t row, const double* coefficients, int degree);
    void AddOffset(std::size_t row, double offset);
    void AddEverywhere(double offset);

    // One row of the surface as the steps so far leave it: samples minus background, in double.
    // Dropouts stay NaN or infinite.
    void Residual(const ImageView& image, std::size_t row, double* out) const;
    // The row for the kernels: the samples with the background's offset and slope when it is at
    // most linear along the row, or else the residual written into buffer.
    SurfaceRow KernelRow(const ImageView& image, std::size_t row, double* buffer) const;

    // count samples of a row of that surface from column on.
    void ResidualSpan(const ImageView& image, std::size_t row, std::size_t column,
                      std::size_t count, double* out) const;

private:
    std::size_t m_Rows;
    std::size_t m_Columns;
    std::vector<double> m_U;
    std::vector<std::array<double, MAX_DEGREE + 1>> m_Coefficients;
    int m_Degree = 0;
};

// The row's samples of the image as they are (no background).
void SampleRow(const ImageView& image, std::size_t row, double* out);

} // namespace Kiv::Analysis::Detail
