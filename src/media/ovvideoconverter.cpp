#include "media/ovvideoconverter.h"

#include "media/ovmedialogging.h"

#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/frame.h>
#include <libavutil/mem.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace {

// The x86 YUV to RGB routines of swscale store whole groups of 16 pixels. When the width is no
// multiple of 16 the last group of the last row runs past the picture: 24 bytes for a width of
// 16n + 8, enough to overwrite the heap's bookkeeping behind a buffer of exactly bytesPerLine ×
// height. Rows in between only spill into the next row before it is written. The largest spill
// is 15 pixels of 3 bytes; the slack is rounded up.
constexpr qsizetype kScalerSpill = 64;

void freePicture(void *data)
{
    av_free(data);
}

// An RGB888 image whose buffer has room for the scaler's spill behind the last row. The rows
// keep QImage's own stride (3 bytes a pixel, padded to 4), which the canvas relies on.
QImage scalerTarget(const QSize &size)
{
    const qsizetype stride = (qsizetype(size.width()) * 3 + 3) & ~qsizetype(3);
    const qsizetype bytes = stride * size.height() + kScalerSpill;
    auto *data = static_cast<uchar *>(av_malloc(size_t(bytes)));
    if (!data)
        return QImage();
    QImage image(data, size.width(), size.height(), stride, QImage::Format_RGB888, &freePicture, data);
    if (image.isNull())
        av_free(data);
    return image;
}

} // namespace

OVVideoConverter::OVVideoConverter() = default;

OVVideoConverter::~OVVideoConverter()
{
    sws_freeContext(m_sws);
}

QSize OVVideoConverter::outputSize(const QSize &coded, const QSize &maximum)
{
    if (coded.width() <= 0 || coded.height() <= 0)
        return QSize();
    double w = coded.width();
    double h = coded.height();
    const bool tooWide = maximum.width() > 0 && w > maximum.width();
    const bool tooHigh = maximum.height() > 0 && h > maximum.height();
    if (tooWide || tooHigh) {
        double scale = 1.0;
        if (maximum.width() > 0)
            scale = std::min(scale, maximum.width() / w);
        if (maximum.height() > 0)
            scale = std::min(scale, maximum.height() / h);
        w *= scale;
        h *= scale;
    }
    const qint64 scaledWidth = std::max<qint64>(1, qint64(w));
    const qint64 scaledHeight = std::max<qint64>(1, qint64(h));
    // A QImage row must start on a 4-byte boundary; a width that is a multiple of 4 makes an RGB24
    // row a multiple of 4 bytes, so the picture can be shared without repacking.
    const qint64 width = std::max<qint64>(4, scaledWidth & ~qint64(3));
    const qint64 height = std::max<qint64>(1, scaledHeight * width / scaledWidth);
    return QSize(int(width), int(height));
}

bool OVVideoConverter::rotationFromDisplayMatrix(const quint8 *data, size_t size, int *degrees)
{
    if (!data || size < 9 * sizeof(int32_t))
        return false;
    int32_t matrix[9];
    memcpy(matrix, data, sizeof(matrix));
    const double ccw = av_display_rotation_get(matrix);
    if (std::isnan(ccw))
        return false;
    int angle = int(std::lround(ccw)) % 360;
    if (angle <= -180)
        angle += 360;
    else if (angle > 180)
        angle -= 360;
    *degrees = angle;
    return true;
}

OV::Error OVVideoConverter::init(const QSize &coded, int pixelFormat, const QSize &maximum, const AVStream *stream)
{
    sws_freeContext(m_sws);
    m_sws = nullptr;
    m_rotation = 0;
    m_outSize = outputSize(coded, maximum);
    if (m_outSize.isEmpty() || pixelFormat < 0) {
        qCWarning(lcMedia) << "OVVideoConverter: no picture size or pixel format" << coded << pixelFormat;
        return OV::Error(1, QStringLiteral("sws_getContext failed"));
    }
    m_sws = sws_getContext(coded.width(), coded.height(), AVPixelFormat(pixelFormat), m_outSize.width(),
                           m_outSize.height(), AV_PIX_FMT_RGB24, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
    if (!m_sws) {
        qCWarning(lcMedia) << "OVVideoConverter: sws_getContext failed for" << coded
                   << av_get_pix_fmt_name(AVPixelFormat(pixelFormat));
        return OV::Error(1, QStringLiteral("sws_getContext failed"));
    }
    if (stream) {
        size_t size = 0;
        const uint8_t *data = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
        int degrees = 0;
        if (rotationFromDisplayMatrix(data, size, &degrees))
            m_rotation = degrees;
    }
    return OV::Error::success();
}

bool OVVideoConverter::convert(const AVFrame *frame, OVVideoFrame *out)
{
    if (!frame || !out || frame->width <= 0 || frame->height <= 0 || frame->format < 0 || m_outSize.isEmpty())
        return false;
    // The picture size or format may change in the middle of a stream; the cached context follows
    // it so the scaler never reads past a smaller picture.
    m_sws = sws_getCachedContext(m_sws, frame->width, frame->height, AVPixelFormat(frame->format),
                                 m_outSize.width(), m_outSize.height(), AV_PIX_FMT_RGB24, SWS_FAST_BILINEAR,
                                 nullptr, nullptr, nullptr);
    if (!m_sws)
        return false;

    if (const AVFrameSideData *side = av_frame_get_side_data(frame, AV_FRAME_DATA_DISPLAYMATRIX)) {
        int degrees = 0;
        if (side->size > 35 && rotationFromDisplayMatrix(side->data, side->size, &degrees))
            m_rotation = degrees;
    }

    QImage image = scalerTarget(m_outSize);
    if (image.isNull())
        return false;
    uint8_t *dst[4] = { image.bits(), nullptr, nullptr, nullptr };
    int dstStride[4] = { int(image.bytesPerLine()), 0, 0, 0 };
    const int rows = sws_scale(m_sws, frame->data, frame->linesize, 0, frame->height, dst, dstStride);
    if (rows <= 0)
        return false;

    out->image = image;
    const AVRational sar = frame->sample_aspect_ratio;
    out->pixelAspect = (sar.num > 0 && sar.den > 0) ? av_q2d(sar) : 1.0;
    out->rotation = m_rotation;
    return true;
}
