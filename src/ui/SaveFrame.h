// Choosing the file name and image format when a frame is saved as a picture.
#pragma once

#include <QString>
#include <cstdint>

namespace kavri::ui {

// Appends ".png" unless the name ends in one of png, bmp, tif, jpg, tiff, jpeg (case-sensitive, so an
// upper-case suffix also gets ".png").
QString saveFrameFileName(const QString &chosen);
// Image format written for a file name: by its suffix ("jpg"/"jpeg" -> JPEG, "tif"/"tiff" -> TIFF, ...).
QByteArray saveFrameFormat(const QString &fileName);
// Name of the temporary picture behind a frame dragged out of the window: the frame number in eight
// digits and the process id, so drags of different frames, or from two players, never overwrite each other.
QString dragFrameFileName(uint64_t frameIndex, qint64 processId);

} // namespace kavri::ui
