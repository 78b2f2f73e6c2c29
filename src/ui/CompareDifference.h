// The difference of two compared sequences, each read with its own record. Their samples are brought to
// one layout at the larger of their two depths (shifted, as a conversion does, so a 10-bit file and the
// same picture at 8 bits differ by nothing) and then go through the difference engine of a single
// file's difference view, which gives the picture, the PSNR and the first differences.
#pragma once

#include "formats/VideoProps.h"
#include "pixel/FramePipeline.h"
#include "pixel/LayoutConvert.h"

#include <QImage>
#include <QString>
#include <cstdint>

namespace kavri::ui {

// One side of the pair: samples in their canonical record and native byte order, as a loader's pipeline
// holds them (FramePipeline::buffer and props), `bytes` long (at least the record's allocation size).
struct CompareSamples {
    const uint8_t *samples = nullptr;
    uint64_t bytes = 0;
    const VideoProps *props = nullptr;
};

class CompareDifference {
public:
    // The record both sides are differenced in: the first's layout where the second converts into it,
    // else the second's, at the larger depth. False with the reason when neither can hold both (YUV
    // against RGB, signed samples against another record, ...).
    static bool commonRecord(const VideoProps &a, const VideoProps &b, VideoProps &common, QString &error);

    // Forms a - b as a picture of the common record into `picture` (made width x height RGB32 when it is
    // not), with the difference table's gain `contrast` (0x7fffffff: the default). False with error()
    // when the two cannot be differenced; `picture` is left as it was then.
    bool compute(const CompareSamples &a, const CompareSamples &b, int32_t contrast, QImage &picture);

    // The metrics and first differences of the last compute, in the common record's depth.
    const DifferencePicture &difference() const { return m_pipeline.difference(); }
    const VideoProps &common() const { return m_common; }
    const QString &error() const { return m_error; }
    // The common record's component count for the PSNR text: 1 for luma only, else 3.
    int components() const;

private:
    bool prepare(const VideoProps &a, const VideoProps &b);

    VideoProps m_a, m_b, m_common;
    bool m_prepared = false;
    bool m_convert[2] = {false, false}; // whether a side's samples are rewritten, or taken as they are
    pixel::LayoutConverter m_converter[2];
    FramePipeline m_pipeline;
    QString m_error;
};

} // namespace kavri::ui
