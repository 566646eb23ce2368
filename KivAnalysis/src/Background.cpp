#include "Background.h"

#include <algorithm>

#include "RowKernels.h"

namespace Kiv::Analysis::Detail
{

namespace
{
// The scale that maps 0 .. count-1 onto -1 .. 1 (a single line stays at 0).
double UnitScale(std::size_t count)
{
    return count > 1 ? 2.0 / static_cast<double>(count - 1) : 1.0;
}

double Centred(std::size_t index, std::size_t count)
{
    return (static_cast<double>(index) - static_cast<double>(count - 1) / 2.0) * UnitScale(count);
}
} // namespace

Background::Background(std::size_t rows, std::size_t columns)
    : m_Rows(rows), m_Columns(columns), m_U(columns), m_Coefficients(rows)
{
    for (std::size_t column = 0; column < columns; ++column)
    {
        m_U[column] = Centred(column, columns);
    }
    for (auto& coefficients : m_Coefficients)
    {
        coefficients.fill(0.0);
    }
}

double Background::V(std::size_t row) const
{
    return Centred(row, m_Rows);
}

void Background::AddToRow(std::size_t row, const double* coefficients, int degree)
{
    for (int k = 0; k <= degree; ++k)
    {
        m_Coefficients[row][static_cast<std::size_t>(k)] += coefficients[k];
    }
    m_Degree = std::max(m_Degree, degree);
}

void Background::AddOffset(std::size_t row, double offset)
{
    m_Coefficients[row][0] += offset;
}

void Background::AddEverywhere(double offset)
{
    for (auto& coefficients : m_Coefficients)
    {
        coefficients[0] += offset;
    }
}

void SampleRow(const ImageView& image, std::size_t row, double* out)
{
    const float* samples = image.samples + row * image.columns;
    for (std::size_t column = 0; column < image.columns; ++column)
    {
        out[column] = samples[column];
    }
}

SurfaceRow Background::KernelRow(const ImageView& image, std::size_t row, double* buffer) const
{
    SurfaceRow kernelRow;
    if (m_Degree <= 1)
    {
        kernelRow.samples = image.samples + row * image.columns;
        kernelRow.u = m_U.data();
        kernelRow.offset = m_Coefficients[row][0];
        kernelRow.slope = m_Coefficients[row][1];
        return kernelRow;
    }
    Residual(image, row, buffer);
    kernelRow.values = buffer;
    return kernelRow;
}

void Background::ResidualSpan(const ImageView& image, std::size_t row, std::size_t column,
                              std::size_t count, double* out) const
{
    const auto& c = m_Coefficients[row];
    const float* samples = image.samples + row * image.columns;
    for (std::size_t i = column; i < column + count; ++i)
    {
        // The same operations as Residual's, so that a value is the same whichever computed it.
        double value = c[static_cast<std::size_t>(m_Degree)];
        if (m_Degree == 1)
        {
            value = c[0] + c[1] * m_U[i];
        }
        else
        {
            for (int k = m_Degree - 1; k >= 0; --k)
            {
                value = value * m_U[i] + c[static_cast<std::size_t>(k)];
            }
        }
        out[i - column] = samples[i] - value;
    }
}

KIV_WIDE_VECTORS
void Background::Residual(const ImageView& image, std::size_t row, double* out) const
{
    const float* __restrict samples = image.samples + row * image.columns;
    double* __restrict values = out;
    const double* __restrict u = m_U.data();
    const auto& coefficients = m_Coefficients[row];
    const std::size_t columns = image.columns;
    // The common cases (offsets, planes) get loops the compiler can vectorise.
    if (m_Degree == 0)
    {
        const double offset = coefficients[0];
        for (std::size_t column = 0; column < columns; ++column)
        {
            values[column] = samples[column] - offset;
        }
        return;
    }
    if (m_Degree == 1)
    {
        const double offset = coefficients[0];
        const double slope = coefficients[1];
        for (std::size_t column = 0; column < columns; ++column)
        {
            values[column] = samples[column] - (offset + slope * u[column]);
        }
        return;
    }
    for (std::size_t column = 0; column < columns; ++column)
    {
        double value = coefficients[static_cast<std::size_t>(m_Degree)];
        for (int k = m_Degree - 1; k >= 0; --k)
        {
            value = value * u[column] + coefficients[static_cast<std::size_t>(k)];
        }
        values[column] = samples[column] - value;
    }
}

} // namespace Kiv::Analysis::Detail
