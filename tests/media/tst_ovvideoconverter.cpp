#include "media/ovaudioresampler.h"
#include "media/ovvideoconverter.h"

#include <QtTest>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/display.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace {

AVFrame *grayFrame(int width, int height, int luma)
{
    AVFrame *f = av_frame_alloc();
    f->width = width;
    f->height = height;
    f->format = AV_PIX_FMT_YUV420P;
    if (av_frame_get_buffer(f, 0) < 0) {
        av_frame_free(&f);
        return nullptr;
    }
    for (int y = 0; y < height; ++y)
        memset(f->data[0] + y * f->linesize[0], luma, size_t(width));
    for (int p = 1; p < 3; ++p)
        for (int y = 0; y < (height + 1) / 2; ++y)
            memset(f->data[p] + y * f->linesize[p], 128, size_t((width + 1) / 2));
    return f;
}

} // namespace

class TestOVVideoConverter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void outputSize_data()
    {
        QTest::addColumn<QSize>("coded");
        QTest::addColumn<QSize>("maximum");
        QTest::addColumn<QSize>("expected");

        QTest::newRow("no limit") << QSize(1920, 1080) << QSize(0, 0) << QSize(1920, 1080);
        QTest::newRow("full hd into 854x480") << QSize(1920, 1080) << QSize(854, 480) << QSize(852, 479);
        QTest::newRow("height limits") << QSize(1920, 1080) << QSize(4000, 540) << QSize(960, 540);
        // An odd width that fits is still rounded so rows stay 4-byte aligned.
        QTest::newRow("odd width") << QSize(718, 576) << QSize(1920, 1080) << QSize(716, 574);
        QTest::newRow("portrait") << QSize(1080, 1920) << QSize(1280, 720) << QSize(404, 718);
        QTest::newRow("tiny") << QSize(2, 2) << QSize(100, 100) << QSize(4, 4);
        QTest::newRow("empty") << QSize(0, 0) << QSize(100, 100) << QSize();
    }

    void outputSize()
    {
        QFETCH(QSize, coded);
        QFETCH(QSize, maximum);
        QFETCH(QSize, expected);
        const QSize size = OVVideoConverter::outputSize(coded, maximum);
        QCOMPARE(size, expected);
        if (size.isValid())
            QCOMPARE(size.width() % 4, 0);
    }

    void rotationFromDisplayMatrix_data()
    {
        // av_display_rotation_set() takes clockwise degrees; the result is counterclockwise.
        QTest::addColumn<double>("angle");
        QTest::addColumn<int>("expected");
        QTest::newRow("none") << 0.0 << 0;
        QTest::newRow("90 clockwise") << 90.0 << -90;
        QTest::newRow("90 counterclockwise") << -90.0 << 90;
        QTest::newRow("180") << 180.0 << 180;
        QTest::newRow("270 clockwise is 90") << 270.0 << 90;
    }

    void rotationFromDisplayMatrix()
    {
        QFETCH(double, angle);
        QFETCH(int, expected);
        int32_t matrix[9];
        av_display_rotation_set(matrix, angle);
        int degrees = 12345;
        QVERIFY(OVVideoConverter::rotationFromDisplayMatrix(reinterpret_cast<const quint8 *>(matrix), sizeof(matrix),
                                                            &degrees));
        QCOMPARE(degrees, expected);
        // A matrix shorter than 3 × 3 is not read.
        QVERIFY(!OVVideoConverter::rotationFromDisplayMatrix(reinterpret_cast<const quint8 *>(matrix), 35, &degrees));
    }

    void convertFollowsSizeChange()
    {
        OVVideoConverter converter;
        QVERIFY(converter.init(QSize(640, 480), AV_PIX_FMT_YUV420P, QSize(320, 320)).isOk());
        QCOMPARE(converter.size(), QSize(320, 240));

        // A stream that changes to a smaller picture must not make the scaler read past it.
        AVFrame *small = grayFrame(64, 48, 200);
        QVERIFY(small);
        small->sample_aspect_ratio = AVRational { 4, 3 };
        OVVideoFrame out;
        QVERIFY(converter.convert(small, &out));
        av_frame_free(&small);
        QCOMPARE(out.image.size(), QSize(320, 240));
        QCOMPARE(out.pixelAspect, 4.0 / 3.0);
        const QRgb centre = out.image.pixel(160, 120);
        QVERIFY(qAbs(qGray(centre) - 200) < 24);

        AVFrame *big = grayFrame(640, 480, 30);
        QVERIFY(converter.convert(big, &out));
        QCOMPARE(out.pixelAspect, 1.0); // 0:1 means square pixels
        QVERIFY(qGray(out.image.pixel(10, 10)) < 60);
        // Rotation side data on one frame is kept for the later ones.
        AVFrameSideData *side = av_frame_new_side_data(big, AV_FRAME_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t));
        QVERIFY(side);
        av_display_rotation_set(reinterpret_cast<int32_t *>(side->data), 90);
        QVERIFY(converter.convert(big, &out));
        QCOMPARE(out.rotation, -90);
        av_frame_remove_side_data(big, AV_FRAME_DATA_DISPLAYMATRIX);
        QVERIFY(converter.convert(big, &out));
        QCOMPARE(out.rotation, -90);
        av_frame_free(&big);
    }

    void everyFrameSize_data()
    {
        QTest::addColumn<QSize>("coded");
        QTest::addColumn<int>("format");
        QTest::addColumn<QSize>("expected");

        // Small heights keep the pictures on the heap (not in pages of their own), where a write past
        // the end breaks the allocator at once.
        const QList<int> widths { 560, 568, 570, 572, 576, 584, 600, 1288 };
        for (int w : widths)
            for (int h : { 16, 17, 2 })
                QTest::addRow("%dx%d yuv420p", w, h) << QSize(w, h) << int(AV_PIX_FMT_YUV420P)
                                                     << OVVideoConverter::outputSize(QSize(w, h), QSize());
        QTest::newRow("568x16 yuv422p") << QSize(568, 16) << int(AV_PIX_FMT_YUV422P) << QSize(568, 16);
        QTest::newRow("584x16 yuvj420p") << QSize(584, 16) << int(AV_PIX_FMT_YUVJ420P) << QSize(584, 16);
        QTest::newRow("600x16 nv12") << QSize(600, 16) << int(AV_PIX_FMT_NV12) << QSize(600, 16);
        QTest::newRow("8x8") << QSize(8, 8) << int(AV_PIX_FMT_YUV420P) << QSize(8, 8);
        QTest::newRow("24x1") << QSize(24, 1) << int(AV_PIX_FMT_YUV420P) << QSize(24, 1);
        QTest::newRow("3x3") << QSize(3, 3) << int(AV_PIX_FMT_YUV420P) << QSize(4, 4);
        QTest::newRow("333x201") << QSize(333, 201) << int(AV_PIX_FMT_YUV420P) << QSize(332, 200);
    }

    // Pictures of every width come out whole: the right size, and the same colour up to the last
    // pixel of the last row; the heap around them stays intact (or the run aborts).
    void everyFrameSize()
    {
        QFETCH(QSize, coded);
        QFETCH(int, format);
        QFETCH(QSize, expected);

        AVFrame *frame = av_frame_alloc();
        frame->width = coded.width();
        frame->height = coded.height();
        frame->format = format;
        QCOMPARE(av_frame_get_buffer(frame, 0), 0);
        // A strong red: Y 81, Cb 90, Cr 240.
        const AVPixFmtDescriptor *desc = av_pix_fmt_desc_get(AVPixelFormat(format));
        const int chromaRows = -((-coded.height()) >> desc->log2_chroma_h);
        const int chromaWidth = -((-coded.width()) >> desc->log2_chroma_w);
        for (int y = 0; y < coded.height(); ++y)
            memset(frame->data[0] + y * frame->linesize[0], 81, size_t(coded.width()));
        for (int y = 0; y < chromaRows; ++y) {
            if (format == AV_PIX_FMT_NV12) {
                uint8_t *row = frame->data[1] + y * frame->linesize[1];
                for (int x = 0; x < chromaWidth; ++x) {
                    row[2 * x] = 90;
                    row[2 * x + 1] = 240;
                }
            } else {
                memset(frame->data[1] + y * frame->linesize[1], 90, size_t(chromaWidth));
                memset(frame->data[2] + y * frame->linesize[2], 240, size_t(chromaWidth));
            }
        }

        OVVideoConverter converter;
        QVERIFY(converter.init(coded, format, QSize()).isOk());
        for (int round = 0; round < 8; ++round) {
            OVVideoFrame out;
            QVERIFY(converter.convert(frame, &out));
            QCOMPARE(out.image.size(), expected);
            QCOMPARE(out.image.format(), QImage::Format_RGB888);
            QCOMPARE(int(out.image.bytesPerLine()), (expected.width() * 3 + 3) / 4 * 4);
            for (const QPoint p : { QPoint(0, 0), QPoint(expected.width() - 1, 0), QPoint(0, expected.height() - 1),
                                    QPoint(expected.width() - 1, expected.height() - 1) }) {
                const QColor c = out.image.pixelColor(p);
                QVERIFY2(c.red() > 200 && c.green() < 50 && c.blue() < 50,
                         qPrintable(QStringLiteral("(%1,%2) is %3").arg(p.x()).arg(p.y()).arg(c.name())));
            }
        }
        av_frame_free(&frame);
    }

    void resampleToStereo_data()
    {
        QTest::addColumn<int>("channels");
        QTest::addColumn<bool>("unknownLayout");
        QTest::newRow("mono") << 1 << false;
        QTest::newRow("5.1") << 6 << false;
        QTest::newRow("two channels without layout") << 2 << true;
    }

    void resampleToStereo()
    {
        QFETCH(int, channels);
        QFETCH(bool, unknownLayout);
        const AVCodec *codec = avcodec_find_decoder(AV_CODEC_ID_PCM_F32LE);
        QVERIFY(codec);
        AVCodecContext *ctx = avcodec_alloc_context3(codec);
        ctx->sample_rate = 22050;
        ctx->sample_fmt = AV_SAMPLE_FMT_FLT;
        if (unknownLayout) {
            ctx->ch_layout.order = AV_CHANNEL_ORDER_UNSPEC;
            ctx->ch_layout.nb_channels = channels;
        } else {
            av_channel_layout_default(&ctx->ch_layout, channels);
        }
        OVAudioResampler resampler;
        QVERIFY(resampler.init(ctx).isOk());

        AVFrame *frame = av_frame_alloc();
        frame->nb_samples = 1000;
        frame->format = AV_SAMPLE_FMT_FLT;
        frame->sample_rate = 22050;
        av_channel_layout_copy(&frame->ch_layout, &ctx->ch_layout);
        QCOMPARE(av_frame_get_buffer(frame, 0), 0);
        auto *samples = reinterpret_cast<float *>(frame->data[0]);
        for (int i = 0; i < 1000 * channels; ++i)
            samples[i] = 0.25f;
        std::vector<qint16> out;
        int count = 0;
        QVERIFY(resampler.convert(frame, out, &count));
        QCOMPARE(count, 1000);
        QCOMPARE(int(out.size()), 2000);
        // A constant signal stays a constant, non-silent signal on both sides.
        QVERIFY(out[100] > 1000);
        QCOMPARE(out[100], out[101]);

        // The same stream switching to mono mid-way is converted too, not misread.
        av_frame_unref(frame);
        frame->nb_samples = 500;
        frame->format = AV_SAMPLE_FMT_FLT;
        frame->sample_rate = 22050;
        av_channel_layout_default(&frame->ch_layout, 1);
        QCOMPARE(av_frame_get_buffer(frame, 0), 0);
        memset(frame->data[0], 0, 500 * sizeof(float));
        QVERIFY(resampler.convert(frame, out, &count));
        QCOMPARE(count, 500);
        av_frame_free(&frame);
        avcodec_free_context(&ctx);
    }
};

QTEST_GUILESS_MAIN(TestOVVideoConverter)
#include "tst_ovvideoconverter.moc"
