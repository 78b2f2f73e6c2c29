// Conversion of one raw frame of any of the 27 layouts into a 32-bit RGB image (B, G, R, unused),
// with the channel selection and the brightness/contrast/gamma tone table; the native sample readout;
// and the deinterlace filter that runs on the RGB result.
#pragma once

#include "formats/VideoProps.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kavri::pixel {
struct KernelSet;
struct TransferTables;
} // namespace kavri::pixel

namespace ColorConversion {

// 0x7fffffff passed to the tone-curve or difference-table builders stands for the default value.
constexpr int32_t kDefaultValue = 0x7fffffff;

class X2RGBColorConv {
public:
    X2RGBColorConv();
    virtual ~X2RGBColorConv();

    // Copies the frame description; the container is then raised to hold the value bits.
    virtual void setDescription(const VideoProps &props);

    // Rebuilds the tone table; kDefaultValue stands for brightness 0, contrast 0, gamma 256.
    void setToneCurve(int32_t brightness, int32_t contrast, int32_t gamma);
    // 0 full colour, 1..3 one component shown as grey.
    void setChannelSelection(int32_t selection);
    // Takes "the samples are unsigned" and stores its negation as the signed flag.
    void setUnsigned(bool isUnsigned);

    // Converts `src` (a buffer of allocationSize bytes holding one frame; writable: a big-endian 16-bit
    // frame is byte-swapped in place to native order first, so converting the same buffer twice swaps
    // it back) into `dst` (width x height x 4 bytes; the fourth byte of a pixel is kept, except by the
    // BGRA block copy and the odd-height zeroing of 4:2:0 and 4:1:0, which write whole pixels).
    // Equivalent to swapToNative(src) followed by convertNativeFrame(src, dst).
    // Any alignment works; frame buffers aligned to 64 bytes avoid split loads in the vector kernels
    // (worth about a quarter of the time for 16-bit containers).
    void convertFrame(uint8_t *src, uint8_t *dst);

    // Byte-swaps a big-endian 16-bit frame in place to native order (nothing for little-endian or 8-bit
    // containers). For callers that need native samples before converting, e.g. the difference of two
    // big-endian files: swap both, compute, then convert with convertNativeFrame.
    void swapToNative(uint8_t *frame) const;
    // Converts a frame that is already in native byte order; never swaps.
    void convertNativeFrame(const uint8_t *src, uint8_t *dst);
    // The samples of stored rows [s0, s1) (rows as stored, before any flip) laid out as a frame of s1 - s0
    // rows of the described layout, in native byte order; valid until the next call on the same thread.
    using BandSource = std::function<const uint8_t *(int32_t s0, int32_t s1)>;
    // convertNativeFrame for a frame whose samples are produced a band of rows at a time (a frame unpacked
    // from another layout), each band on the thread that converts it just before, so that it is converted
    // while still in the cache and the whole frame never exists: the same picture as converting the whole
    // frame. For the planar layouts whose picture rows each read their own stored row alone (4:2:2, 4:4:4,
    // 4:1:1, planar RGB) with the default reading; for anything else it returns false and does nothing.
    // A band source that returns null leaves its rows of `dst` as they were.
    bool convertNativeBands(uint8_t *dst, const BandSource &band);
    // Whether the conversion as set up now reads the default way (the only one that takes bands): false
    // for another colour reading shown in full colour.
    bool readsDefault() const { return m_props.colour.isDefault() || m_channelSelection != 0; }

    // Threads used for large frames: 0 (default) the shared worker pool and the caller, 1 the caller
    // only, n at most n threads in all. The result never depends on it.
    void setThreadCount(int32_t threads) { m_threads = threads < 0 ? 0 : threads; }
    int32_t threadCount() const { return m_threads; }
    // Chooses the kernel set by name ("portable", "avx2", "avx512"); false (and no change) when the
    // build or the CPU lacks it. The default is the fastest the CPU supports; results are identical.
    bool setKernelVariant(const char *name);
    const char *kernelVariant() const;

    // Stored sample values at column x of stored row `row` (the caller mirrors flipped pictures).
    // Expects a buffer in native byte order (after convertFrame). False where the layout gives no value.
    bool readNative(const uint8_t *frame, int32_t x, int32_t row, int32_t &c1, int32_t &c2, int32_t &c3,
                    int32_t *alpha) const;

    const VideoProps &description() const { return m_props; }
    int32_t channelSelection() const { return m_channelSelection; }
    bool isSigned() const { return m_signed; }
    int32_t brightness() const { return m_brightness; }
    int32_t contrast() const { return m_contrast; }
    int32_t gamma() const { return m_gamma; }
    const std::array<int32_t, 256> &toneTable() const { return m_toneTable; }

private:
    struct Prepared;
    void convertRows(const Prepared &job, const uint8_t *src, uint8_t *dst, int32_t r0, int32_t r1) const;
    // convertNativeFrame, or with `band` convertNativeBands (src unused).
    bool convertFrom(const uint8_t *src, uint8_t *dst, const BandSource *band);
    // The described reading (m_props.colour not the default): the same row kernels with the constants
    // of the description, or gathered rows for sited chroma and the high-dynamic-range transfers.
    void convertDescribed(const uint8_t *src, uint8_t *dst, int64_t alloc);
    void runBands(int32_t height, int64_t pixels, const std::function<void(int32_t, int32_t)> &rows) const;

    VideoProps m_props;
    bool m_signed = false;
    int32_t m_channelSelection = 0;
    int32_t m_brightness = 0, m_contrast = 0, m_gamma = 256;
    std::array<int32_t, 256> m_toneTable{};
    std::array<uint8_t, 256> m_toneBytes{};
    bool m_toneIdentity = true;
    int32_t m_threads = 0;
    const kavri::pixel::KernelSet *m_kernels = nullptr;
    std::shared_ptr<kavri::pixel::TransferTables> m_transferTables;
};

} // namespace ColorConversion

// In-place filter over a converted 32-bit RGB image (4 bytes a pixel, rows of exactly `width` pixels):
// rewrites the odd rows from their five-row neighbourhood; the fourth byte is kept.
void deinterlaceFilter(uint8_t *rgb, int32_t width, int32_t height);
