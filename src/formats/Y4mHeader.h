// The text header of a .y4m file ("YUV4MPEG2 W.. H.. F.. ..." up to a newline), and the "FRAME" line that
// comes before every frame. Reading one gives a complete format record; writing one describes a record.
#pragma once

#include "formats/VideoProps.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <cstdint>
#include <optional>

namespace kavri {

// What every such file starts with, separator included.
inline constexpr char kY4mSignature[] = "YUV4MPEG2 ";
// The line before each frame when it carries no parameters: "FRAME\n".
inline constexpr uint32_t kY4mFrameHeaderBytes = 6;
// The stream header is one line; one that has not ended after this many bytes is not one we read.
inline constexpr qint64 kMaxY4mHeaderBytes = 64 * 1024;

struct Y4mHeader {
    int32_t width = 0;
    int32_t height = 0;
    // The frame rate as a fraction; 0:0 when the header gives none (or says it is unknown).
    int64_t rateNum = 0, rateDen = 0;
    // 'p' progressive (also when the header is silent), 't' top field first, 'b' bottom first, 'm' mixed.
    char interlace = 'p';
    // Pixel aspect; 0:0 when unknown or not given.
    int64_t aspectNum = 0, aspectDen = 0;
    // The colour tag as written ("420jpeg" when absent), and the layout and depth it stands for.
    QByteArray colour = "420jpeg";
    videoFormat_t layout = YUV_p420;
    int32_t bitDepth = 8;
    // Every X parameter, without its leading 'X', in the order written.
    QList<QByteArray> comments;
    // The value of an XCOLORRANGE= comment ("FULL", "LIMITED"), empty when there is none.
    QByteArray colourRange;
    // Bytes of the header line, its newline included: where the first FRAME line starts.
    uint32_t headerBytes = 0;
};

struct Y4mParse {
    std::optional<Y4mHeader> header;
    QString error; // one sentence, set whenever header is empty
};

// Whether `bytes` (the start of a file) carries the signature.
bool hasY4mSignature(const QByteArray &bytes);

// Reads the header at the start of `bytes`. Fails, with a reason, for bytes without the signature, a
// header line that does not end within `bytes` (or kMaxY4mHeaderBytes), a missing or unusable width or
// height, an unusable rate or aspect, and a colour tag with no layout of ours.
Y4mParse parseY4mHeader(const QByteArray &bytes);

// Bytes of one frame as a y4m file stores it: the planes in full, odd sizes rounded up in the chroma
// planes. 0 for a header whose frame does not fit in 32 bits.
uint64_t y4mFrameBytes(const Y4mHeader &header);

// Fills the record from a header: layout, size, rate, depth and container, interlacing, the header
// bytes and the FRAME line before each frame. Everything else is left as it was.
void applyY4mHeader(const Y4mHeader &header, VideoProps &props);

// The colour tag that describes `layout` at `bitDepth` ("420jpeg", "422p10", "mono16" ...); empty when
// the format has none for it.
QByteArray y4mColourTag(videoFormat_t layout, int32_t bitDepth);

// The header line (newline included) of a y4m file holding frames of `props` copied as they are stored.
// Empty, with the reason in `refusal`, for a record the format cannot describe: a layout or depth with
// no colour tag, a container other than the tag's, signed, byte-swapped, flipped or U/V-swapped samples.
QByteArray y4mStreamHeader(const VideoProps &props, QString *refusal);

// The stream header line for frames of `props` (size, rate, interlacing, aspect, colour tag), without the
// checks of y4mStreamHeader: for a writer that lays out whole y4m frames itself. Empty when no colour tag
// names the layout at that depth.
QByteArray y4mHeaderLine(const VideoProps &props);

// The FRAME lines of the y4m file at `path` whose header takes `headerBytes` and whose frames take
// `frameBytes`. When every line is the plain one the frames are evenly spaced and `starts` stays empty;
// when some line carries parameters the file is walked line by line and `starts` lists where each whole
// frame's samples begin (8 bytes a frame). A frame cut short at the end is not listed. `error` is set for
// a frame without its FRAME line (a damaged file) or a line that does not end within kMaxY4mFrameLineBytes.
inline constexpr qint64 kMaxY4mFrameLineBytes = 4096;
struct Y4mFrameScan {
    FrameStarts starts;
    QString error;
};
Y4mFrameScan scanY4mFrames(const QString &path, uint32_t headerBytes, uint32_t frameBytes);

// Reads the header of the file at `path` (a readable regular file that starts with the signature) into
// `props`, with its FRAME lines walked (see scanY4mFrames). Answers false when the file does not start
// with the signature; true when it does, with `error` empty and `props` filled for a file we can read,
// or with `error` set and `props` untouched for one we cannot. `header`, when given, receives the header.
bool readY4mFile(const QString &path, VideoProps &props, QString &error, Y4mHeader *header = nullptr);

// Where the frames of the second file of a pair lie, the pair being read with the first file's record
// `first`. A y4m file keeps its own header and FRAME lines (its frames must be of the record's size); a
// file without one is raw when the first file is a y4m file, and otherwise lies where the record says
// (a header of the record's length before it, as before y4m files were read).
struct SecondPlacement {
    uint32_t headerBytes = 0;
    uint32_t frameHeaderBytes = 0;
    FrameStarts starts; // for a y4m file with FRAME lines of different lengths
    QString error;      // the pair cannot be read; the numbers mean nothing then
};
SecondPlacement secondFilePlacement(const VideoProps &first, const QString &secondPath);

} // namespace kavri
