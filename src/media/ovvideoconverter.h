#pragma once

#include "log/overror.h"

#include <QImage>
#include <QSize>

struct AVFrame;
struct AVStream;
struct SwsContext;

// One picture ready for display: 24-bit RGB whose rows start on 4-byte boundaries.
struct OVVideoFrame
{
    QImage image; // QImage::Format_RGB888, width a multiple of 4
    double time = 0.0; // seconds from the start of the media, set by the caller
    double pixelAspect = 1.0;
    // The display-matrix rotation: degrees counterclockwise, in (-180, 180]; ±90 swaps the shown
    // width and height.
    int rotation = 0;
    int serial = 0; // the decoder's seek serial the frame was made under
};

// Scales decoded pictures to RGB24 within a maximum size. One instance per video stream; it keeps
// the last rotation seen because the display matrix usually comes with the first picture only.
class OVVideoConverter
{
public:
    OVVideoConverter();
    ~OVVideoConverter();
    OVVideoConverter(const OVVideoConverter &) = delete;
    OVVideoConverter &operator=(const OVVideoConverter &) = delete;

    // The size pictures of `coded` size are scaled to: fitted into `maximum` with the aspect ratio
    // kept (a maximum of 0 or less leaves that side free), the width rounded down to a multiple of 4
    // and the height following the rounding. Never smaller than 4 × 1.
    static QSize outputSize(const QSize &coded, const QSize &maximum);
    // The rotation of a 3 × 3 display matrix of at least 36 bytes, in counterclockwise degrees within
    // (-180, 180].
    static bool rotationFromDisplayMatrix(const quint8 *data, size_t size, int *degrees);

    // Prepares for pictures of the given coded size and pixel format. `stream` (may be null)
    // provides the rotation of streams that carry it only in their header.
    OV::Error init(const QSize &coded, int pixelFormat, const QSize &maximum, const AVStream *stream = nullptr);
    QSize size() const { return m_outSize; }
    int rotation() const { return m_rotation; }

    // Fills image, pixel aspect and rotation of `out`; false when the picture cannot be scaled.
    bool convert(const AVFrame *frame, OVVideoFrame *out);

private:
    SwsContext *m_sws = nullptr;
    QSize m_outSize;
    int m_rotation = 0;
};
