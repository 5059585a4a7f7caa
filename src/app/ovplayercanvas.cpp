#include "app/ovplayercanvas.h"

#include "media/ovvideoplayer.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QGuiApplication>
#include <QMimeData>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLWidget>
#include <QPainter>
#include <QUrl>
#include <QVBoxLayout>

#include <cmath>

// The two drawing surfaces differ only in their base class.
class OVPlayerCanvasRaster : public QWidget
{
public:
    explicit OVPlayerCanvasRaster(OVPlayerCanvas *canvas) : QWidget(canvas), m_canvas(canvas)
    {
        setAttribute(Qt::WA_OpaquePaintEvent);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter p(this);
        m_canvas->paintSurface(p, rect());
    }

private:
    OVPlayerCanvas *m_canvas;
};

class OVPlayerCanvasGL : public QOpenGLWidget
{
public:
    explicit OVPlayerCanvasGL(OVPlayerCanvas *canvas) : QOpenGLWidget(canvas), m_canvas(canvas) {}

protected:
    void paintGL() override
    {
        QPainter p(this);
        m_canvas->paintSurface(p, rect());
    }

private:
    OVPlayerCanvas *m_canvas;
};

OVPlayerCanvas::OVPlayerCanvas(QWidget *parent) : QWidget(parent)
{
    setAcceptDrops(true);
    setMinimumSize(160, 90);
    setAutoFillBackground(false);
    m_openGL = openGLAvailable();
    if (m_openGL)
        m_surface = new OVPlayerCanvasGL(this);
    else
        m_surface = new OVPlayerCanvasRaster(this);
    qDebug() << "OVPlayerCanvas: drawing with" << (m_openGL ? "OpenGL" : "the raster engine");
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_surface);
    m_pollTimer.setTimerType(Qt::PreciseTimer);
    m_pollTimer.setInterval(PollIntervalMs);
    connect(&m_pollTimer, &QTimer::timeout, this, &OVPlayerCanvas::poll);
}

OVPlayerCanvas::~OVPlayerCanvas() = default;

bool OVPlayerCanvas::openGLAvailable()
{
    static const bool available = [] {
        if (qEnvironmentVariableIntValue("KAVOT_RASTER_CANVAS") == 1)
            return false;
        const QString platform = QGuiApplication::platformName();
        if (platform == QLatin1String("offscreen") || platform == QLatin1String("minimal")
            || platform == QLatin1String("vnc"))
            return false;
        QOpenGLContext context;
        if (!context.create())
            return false;
        QOffscreenSurface surface;
        surface.setFormat(context.format());
        surface.create();
        if (!surface.isValid() || !context.makeCurrent(&surface))
            return false;
        // A renderer in software (Mesa's llvmpipe under Xvfb or in a virtual machine) uploads
        // and scales each picture slower than Qt's own raster engine does.
        const auto *renderer = reinterpret_cast<const char *>(context.functions()->glGetString(GL_RENDERER));
        const QString name = renderer ? QString::fromLatin1(renderer) : QString();
        context.doneCurrent();
        const bool software = name.contains(QLatin1String("llvmpipe"), Qt::CaseInsensitive)
                              || name.contains(QLatin1String("softpipe"), Qt::CaseInsensitive)
                              || name.contains(QLatin1String("swrast"), Qt::CaseInsensitive);
        qDebug() << "OVPlayerCanvas: OpenGL renderer" << name;
        if (software && qEnvironmentVariableIntValue("KAVOT_OPENGL_CANVAS") != 1)
            return false;
        return true;
    }();
    return available;
}

void OVPlayerCanvas::setPlayer(OVVideoPlayer *player)
{
    m_player = player;
    clear();
    if (player)
        m_pollTimer.start();
    else
        m_pollTimer.stop();
}

void OVPlayerCanvas::clear()
{
    m_frame.reset();
    m_lastPainted = nullptr;
    m_surface->update();
}

void OVPlayerCanvas::poll()
{
    if (!m_player)
        return;
    OVPlaybackQueues::VideoFramePtr frame = m_player->takeDueFrame();
    if (!frame)
        return;
    m_frame = std::move(frame);
    ++m_framesTaken;
    m_surface->update();
    Q_EMIT frameChanged();
}

QImage OVPlayerCanvas::frameImage(const OVPlaybackQueues::VideoFrame &frame)
{
    if (!frame.image.isNull())
        return frame.image;
    if (frame.width <= 0 || frame.height <= 0 || frame.stride < frame.width * 3
        || frame.pixels.size() < qsizetype(frame.stride) * frame.height)
        return QImage();
    return QImage(reinterpret_cast<const uchar *>(frame.pixels.constData()), frame.width, frame.height,
                  frame.stride, QImage::Format_RGB888);
}

QRectF OVPlayerCanvas::fittedRect(const QSize &size, double pixelAspect, int rotation, const QRectF &area)
{
    if (size.isEmpty() || area.isEmpty())
        return QRectF();
    if (!(pixelAspect > 0.0) || !std::isfinite(pixelAspect))
        pixelAspect = 1.0;
    // The picture as it should look, before rotation.
    const double w = size.width() * pixelAspect;
    const double h = size.height();
    const int quarter = ((rotation % 360) + 360) % 360;
    const bool sideways = quarter == 90 || quarter == 270;
    const double shownW = sideways ? h : w;
    const double shownH = sideways ? w : h;
    const double scale = std::min(area.width() / shownW, area.height() / shownH);
    const QSizeF drawn(w * scale, h * scale);
    return QRectF(area.center().x() - drawn.width() / 2, area.center().y() - drawn.height() / 2, drawn.width(),
                  drawn.height());
}

void OVPlayerCanvas::paintFrame(QPainter &painter, const QRect &area, const OVPlaybackQueues::VideoFrame *frame)
{
    painter.fillRect(area, Qt::black);
    if (!frame)
        return;
    const QImage image = frameImage(*frame);
    if (image.isNull())
        return;
    const int rotation = int(std::lround(frame->rotation));
    const QRectF target = fittedRect(image.size(), frame->pixelAspect, rotation, QRectF(area));
    if (target.isEmpty())
        return;
    painter.save();
    // Scaling down a large picture benefits from filtering; scaling up does not need it.
    painter.setRenderHint(QPainter::SmoothPixmapTransform, target.width() < image.width());
    const QPointF c = target.center();
    painter.translate(c);
    // The display matrix turns counterclockwise; the painter turns clockwise.
    if (rotation != 0)
        painter.rotate(-rotation);
    painter.drawImage(QRectF(-target.width() / 2, -target.height() / 2, target.width(), target.height()), image);
    painter.restore();
}

void OVPlayerCanvas::setOverlayText(const QString &text, const QColor &color, const QFont &font)
{
    if (text == m_overlayText && color == m_overlayColor && font == m_overlayFont)
        return;
    m_overlayText = text;
    m_overlayColor = color;
    m_overlayFont = font;
    // While paused no new frame comes to repaint it.
    m_surface->update();
}

void OVPlayerCanvas::paintOverlay(QPainter &painter, const QRect &area, const QString &text, const QColor &color,
                                  const QFont &font)
{
    if (text.isEmpty() || area.isEmpty())
        return;
    painter.save();
    painter.setFont(font);
    const int margin = std::max(4, area.height() / 30);
    const QRect room = area.adjusted(area.width() / 20, margin, -area.width() / 20, -margin);
    const int flags = Qt::AlignHCenter | Qt::AlignBottom | Qt::TextWordWrap;
    const QRect box = painter.boundingRect(room, flags, text);
    // A dark band keeps light text readable over a light picture.
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 150));
    painter.drawRoundedRect(box.adjusted(-8, -4, 8, 4), 4, 4);
    painter.setPen(color);
    painter.drawText(room, flags, text);
    painter.restore();
}

void OVPlayerCanvas::paintSurface(QPainter &painter, const QRect &area)
{
    paintFrame(painter, area, m_frame.get());
    paintOverlay(painter, area, m_overlayText, m_overlayColor, m_overlayFont);
    if (m_frame && m_frame.get() != m_lastPainted) {
        m_lastPainted = m_frame.get();
        ++m_framesPainted;
    }
}

void OVPlayerCanvas::dragEnterEvent(QDragEnterEvent *event)
{
    const QMimeData *mime = event->mimeData();
    if (mime->hasUrls() && !mime->urls().isEmpty() && mime->urls().first().isLocalFile())
        event->acceptProposedAction();
}

void OVPlayerCanvas::dropEvent(QDropEvent *event)
{
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.isEmpty() || !urls.first().isLocalFile())
        return;
    event->acceptProposedAction();
    Q_EMIT fileDropped(urls.first().toLocalFile());
}
