#include "app/ovplayercanvas.h"
#include "media/ovvideoconverter.h"

#include <QPainter>
#include <QTest>

extern "C" {
#include <libavutil/frame.h>
}

// Pictures of every size the converter makes reach the screen whole: widths of 16n + 8 once
// broke the heap on their way there, odd sizes are rounded on it.
class TestOVPlayerCanvas : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void paintsEverySize_data()
    {
        QTest::addColumn<QSize>("coded");
        for (const QSize s : { QSize(560, 320), QSize(568, 320), QSize(570, 321), QSize(576, 324), QSize(584, 329),
                               QSize(600, 338), QSize(333, 241), QSize(24, 17), QSize(2, 2), QSize(1288, 9) })
            QTest::addRow("%dx%d", s.width(), s.height()) << s;
    }
    void paintsEverySize()
    {
        QFETCH(QSize, coded);
        AVFrame *frame = av_frame_alloc();
        frame->width = coded.width();
        frame->height = coded.height();
        frame->format = AV_PIX_FMT_YUV420P;
        QCOMPARE(av_frame_get_buffer(frame, 0), 0);
        // Red (Y 81, Cb 90, Cr 240) over the whole picture, padding included.
        memset(frame->data[0], 81, size_t(frame->linesize[0]) * coded.height());
        memset(frame->data[1], 90, size_t(frame->linesize[1]) * ((coded.height() + 1) / 2));
        memset(frame->data[2], 240, size_t(frame->linesize[2]) * ((coded.height() + 1) / 2));

        OVVideoConverter converter;
        QVERIFY(converter.init(coded, AV_PIX_FMT_YUV420P, QSize(1920, 1080)).isOk());
        OVVideoFrame converted;
        QVERIFY(converter.convert(frame, &converted));
        av_frame_free(&frame);

        OVPlaybackQueues::VideoFrame queued;
        queued.width = converted.image.width();
        queued.height = converted.image.height();
        queued.stride = int(converted.image.bytesPerLine());
        queued.image = converted.image;
        QImage screen(320, 200, QImage::Format_RGB32);
        QPainter p(&screen);
        OVPlayerCanvas::paintFrame(p, screen.rect(), &queued);
        p.end();
        const QRectF fitted = OVPlayerCanvas::fittedRect(converted.image.size(), 1.0, 0, QRectF(screen.rect()));
        const QColor centre = screen.pixelColor(fitted.center().toPoint());
        QVERIFY2(centre.red() > 200 && centre.green() < 60 && centre.blue() < 60, qPrintable(centre.name()));
    }
};

QTEST_MAIN(TestOVPlayerCanvas)
#include "tst_ovplayercanvas.moc"
