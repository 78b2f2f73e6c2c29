// The deinterlace filter on the converted picture: every odd row is rebuilt from the five rows around
// it with weights chosen by which of the five values lie above their mean.
#include "pixel/ColorConversion.h"

namespace {

// Weights of rows t-2 .. t+2 in 1/1024, indexed by the mask of rows whose value exceeds the mean.
// Row 31 cannot be selected: not all five values can exceed their own mean.
constexpr int16_t kWeights[32][5] = {
    {1024, 0, 0, 0, 0},          {-31, 266, 292, 486, 11},   {-97, 433, 86, 746, -144},  {-147, 448, 381, 498, -157},
    {-384, 735, 206, 795, -329}, {-55, 480, 79, 573, -52},   {-19, 351, 348, 607, -263}, {-130, 592, 200, 535, -172},
    {-126, 769, 46, 429, -94},   {-32, 465, 195, 454, -59},  {-37, 523, 45, 531, -38},   {-109, 556, 121, 534, -78},
    {-235, 549, 454, 325, -68},  {-103, 463, 220, 483, -39}, {-60, 347, 463, 370, -96},  {-52, 516, 375, 230, -44},
    {-55, 521, 344, 249, -35},   {-44, 329, 468, 342, -71},  {-100, 459, 225, 457, -17}, {-218, 520, 507, 253, -38},
    {-127, 580, 88, 529, -46},   {-12, 513, 3, 521, -1},     {-44, 466, 176, 453, -26},  {-92, 750, -18, 429, -45},
    {-164, 621, 218, 501, -152}, {-5, 334, 376, 569, -250},  {-86, 451, 89, 584, -15},   {-329, 584, 282, 793, -306},
    {-175, 501, 347, 488, -136}, {-70, 442, 10, 691, -49},   {-43, 256, 301, 473, 38},   {0, -10380, 76, 0, 0},
};

} // namespace

void deinterlaceFilter(uint8_t *rgb, int32_t width, int32_t height)
{
    if (!rgb || width <= 0 || height < 2) return;
    const uint32_t last = uint32_t(height - 1);
    const size_t stride = size_t(width) * 4;
    for (int32_t t = 1; t < height; t += 2) {
        // Indices past the bottom become the last row; t-2 = -1 for the first odd row, taken as an
        // unsigned number, is past the bottom too and also becomes the last row (not row 0).
        const uint8_t *rows[5];
        for (int k = 0; k < 5; ++k) {
            uint32_t idx = uint32_t(t - 2 + k);
            if (idx > last) idx = last;
            rows[k] = rgb + size_t(idx) * stride;
        }
        uint8_t *out = rgb + size_t(t) * stride;
        // In place and in increasing t: a rewritten row is read again as row t-2 of the next odd row.
        // Each byte is read from all five rows before it is written, so t+1/t+2 clamped onto t are safe.
        for (size_t i = 0; i < stride; ++i) {
            if ((i & 3) == 3) continue; // the fourth byte is not the filter's
            int32_t v[5], sum = 0;
            for (int k = 0; k < 5; ++k) sum += v[k] = rows[k][i];
            const int32_t mean = sum / 5;
            int mask = 0;
            for (int k = 0; k < 5; ++k)
                if (v[k] > mean) mask |= 1 << k;
            int32_t acc = 0;
            for (int k = 0; k < 5; ++k) acc += kWeights[mask][k] * v[k];
            acc >>= 10;
            out[i] = uint8_t(acc < 0 ? 0 : (acc > 255 ? 255 : acc));
        }
    }
}
