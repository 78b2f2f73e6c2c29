#include "formats/VideoProps.h"

VideoProps &VideoProps::operator=(const VideoProps &o)
{
    if (this == &o) return *this;
    const QString keepDiff = diffFileName;
    width = o.width;
    height = o.height;
    frameRate = o.frameRate;
    frameCount = o.frameCount;
    fileSize = o.fileSize;
    format = o.format;
    bitDepth = o.bitDepth;
    containerBits = o.containerBits;
    frameBytes = o.frameBytes;
    interlaced = o.interlaced;
    fileName = o.fileName;
    diffFileName = keepDiff;
    flipped = o.flipped;
    anamorphic = o.anamorphic;
    toggleEndianness = o.toggleEndianness;
    signedValues = o.signedValues;
    swapUV = o.swapUV;
    headerBytes = o.headerBytes;
    frameHeaderBytes = o.frameHeaderBytes;
    diffHeaderBytes = o.diffHeaderBytes;
    diffFrameHeaderBytes = o.diffFrameHeaderBytes;
    frameStarts = o.frameStarts;
    diffFrameStarts = o.diffFrameStarts;
    timeStamp = o.timeStamp;
    scaleX = o.scaleX;
    scaleY = o.scaleY;
    planeStride = o.planeStride;
    planeOffset = o.planeOffset;
    colour = o.colour;
    return *this;
}
