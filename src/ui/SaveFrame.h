// Choosing the file name and image format when a frame is saved as a picture.
#pragma once

#include <QString>

namespace kavri::ui {

// Appends ".png" unless the name ends in one of png, bmp, tif, jpg, tiff, jpeg (case-sensitive, so an
// upper-case suffix also gets ".png").
QString saveFrameFileName(const QString &chosen);
// Image format written for a file name: by its suffix ("jpg"/"jpeg" -> JPEG, "tif"/"tiff" -> TIFF, ...).
QByteArray saveFrameFormat(const QString &fileName);

} // namespace kavri::ui
