#pragma once

#include "media/ovplaybackqueues.h"

#include <QColor>
#include <QFont>
#include <QImage>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include "media/ovvideoplayer.h"

// Shows the player's pictures: the due frame, fitted into the widget with its aspect ratio,
// pixel aspect ratio and rotation, centred on black.
//
// The drawing surface is an OpenGL widget where OpenGL works, and a plain raster widget where
// it does not: on the offscreen platform, when no OpenGL context can be made, or when the
// environment variable KAVOT_RASTER_CANVAS is 1. Both draw with QPainter, so they show the
// same picture. A software OpenGL renderer (Mesa's llvmpipe) counts as no OpenGL, since the
// raster engine is faster than it; KAVOT_OPENGL_CANVAS=1 insists on OpenGL anyway.
//
// The canvas pulls frames itself, on a precise timer, with OVVideoPlayer::takeDueFrame(); a
// frame is repainted only when a new one is due.
class OVPlayerCanvas : public QWidget
{
    Q_OBJECT

public:
    static constexpr int PollIntervalMs = 8;

    explicit OVPlayerCanvas(QWidget *parent = nullptr);
    ~OVPlayerCanvas() override;

    void setPlayer(OVVideoPlayer *player);
    OVVideoPlayer *player() const { return m_player; }

    // Forgets the picture (black until the next frame).
    void clear();
    OVPlaybackQueues::VideoFramePtr currentFrame() const { return m_frame; }
    // Frames taken from the player and painted since the canvas was made.
    quint64 framesTaken() const { return m_framesTaken; }
    quint64 framesPainted() const { return m_framesPainted; }
    bool usesOpenGL() const { return m_openGL; }

    // Text drawn over the picture near its bottom, as subtitles are; empty for none.
    void setOverlayText(const QString &text, const QColor &color, const QFont &font);
    QString overlayText() const { return m_overlayText; }
    static void paintOverlay(QPainter &painter, const QRect &area, const QString &text, const QColor &color,
                             const QFont &font);

    // Whether OpenGL drawing is to be used in this process (decided once).
    static bool openGLAvailable();
    // The rectangle (centred on `area`'s centre, in unrotated picture axes) that a picture of
    // `size` pixels with `pixelAspect` and `rotation` (degrees counterclockwise) fills when it
    // is fitted into `area` with its shape kept. For ±90° its width runs along the area's height.
    static QRectF fittedRect(const QSize &size, double pixelAspect, int rotation, const QRectF &area);
    // Paints `frame` (may be null: black) into `area` of `painter`.
    static void paintFrame(QPainter &painter, const QRect &area, const OVPlaybackQueues::VideoFrame *frame);
    // The picture of a frame as an image (shares the frame's pixels).
    static QImage frameImage(const OVPlaybackQueues::VideoFrame &frame);

Q_SIGNALS:
    void fileDropped(const QString &path);
    // A new picture is on its way to the screen.
    void frameChanged();

protected:
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    friend class OVPlayerCanvasRaster;
    friend class OVPlayerCanvasGL;
    void poll();
    void paintSurface(QPainter &painter, const QRect &area);

    QPointer<OVVideoPlayer> m_player;
    QWidget *m_surface = nullptr;
    bool m_openGL = false;
    QTimer m_pollTimer;
    OVPlaybackQueues::VideoFramePtr m_frame;
    quint64 m_framesTaken = 0;
    quint64 m_framesPainted = 0;
    const void *m_lastPainted = nullptr;
    QString m_overlayText;
    QColor m_overlayColor;
    QFont m_overlayFont;
};
