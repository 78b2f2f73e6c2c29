// One further sequence of a compare workspace: it owns a loader of its own (the window's loader shows the
// first sequence) and takes its frames the way the draw panel does, into a back image that each delivery
// turns into the front one. The workspace reads the front image and its frame number under the lock, and,
// while it asks for them, a copy of the stored samples the front image was converted from.
#pragma once

#include "formats/VideoProps.h"
#include "loader/Frame.h"
#include "ui/CompareDifference.h"

#include <QImage>
#include <QMutex>
#include <QObject>
#include <QString>
#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <vector>

class KavriLoader;

namespace kavri::ui {

class CompareSource : public QObject {
    Q_OBJECT
public:
    static constexpr uint64_t kNoFrame = std::numeric_limits<uint64_t>::max();

    // Takes over `loader` (already created).
    explicit CompareSource(KavriLoader *loader, QObject *parent = nullptr);
    ~CompareSource() override;

    KavriLoader *loader() const { return m_loader; }
    QString path() const;
    // Number of the frame the front image holds (kNoFrame before the first).
    uint64_t shownIndex() const { return m_shownIndex.load(); }

    // Asks for frame `index` unless it is shown or already asked for (any thread).
    void follow(uint64_t index);

    // The front image, locked while the returned guard lives.
    struct Front {
        std::unique_lock<QMutex> lock;
        const QImage *image = nullptr;
        uint64_t index = kNoFrame;
    };
    Front front() const;

    // Whether each delivery keeps a copy of its stored samples (the difference view needs them; the copy
    // costs a frame's bytes a frame, so only then). Switching it on delivers the frame held again.
    void setKeepSamples(bool on);
    // The samples kept with the front image, locked while the returned guard lives; `index` is kNoFrame
    // when none are kept.
    struct Samples {
        std::unique_lock<QMutex> lock;
        CompareSamples samples;
        uint64_t index = kNoFrame;
    };
    Samples samples() const;

signals:
    // For the loader (attach wires them).
    void play();
    void pause();
    void stop();
    void reload();
    void seek(uint64_t frame, bool b_remote, bool b_dragged);
    void getNativeAt(bool *ok, int32_t x, int32_t y, colorSpace_t &space, int32_t &c1, int32_t &c2, int32_t &c3,
                     int32_t *alpha);
    // A frame arrived (emitted on the loader thread; connect queued).
    void delivered(uint64_t index);
    void initialized();

public slots:
    void oon_new_frame(frame_t *frame);
    void oon_load_init();
    void oon_stopped() {}
    void oon_cannot_show(const QString &) {}
    void get_buffer(uint8_t **pp_frame, QSize size, void *p_update_data);

public:
    // Reads the stored values at image pixel (x, y) of the frame last shown (GUI thread).
    bool nativeAt(int32_t x, int32_t y, colorSpace_t &space, int32_t &c1, int32_t &c2, int32_t &c3, int32_t &alpha);

private:
    KavriLoader *m_loader = nullptr;
    mutable QMutex m_lock;
    std::unique_ptr<QImage> m_back, m_front;
    std::atomic<uint64_t> m_shownIndex{kNoFrame};
    std::atomic<uint64_t> m_asked{kNoFrame};
    std::atomic<bool> m_keepSamples{false};
    std::vector<uint8_t> m_samples;
    VideoProps m_sampleProps;
    uint64_t m_samplesIndex = kNoFrame;
};

} // namespace kavri::ui
